#pragma once

#include <map>

#include "Explanation.h"
#include "Why.h"

namespace host {

/// Walks from a source to the interfaces, and notes what it meets. Each route is explained once.
class Explainer {
 public:
  Explainer(const Router& router, const kernel::ReversePath* kernel)
      : router_(router), kernel_(kernel), why_(router) {}

  Explanation explain(const Lumo::IpGenAddr& source, std::optional<U32> incoming);

  /// A configured line that does not resolve where it could decide, and the one behind it that is the cause.
  struct Trouble {
    std::size_t line;  ///< places among the steps
    std::size_t cause;
    bool longer;  ///< it is of a longer prefix than the route that answers
  };
  const std::vector<Trouble>& troubles() const { return troubles_; }

 private:
  using Kind = Explanation::Kind;
  using Step = Explanation::Step;
  /// The step of an unresolved line that is the cause, if there is one.
  using Cause = std::optional<std::size_t>;

  /// A prefix that has been explained: the number of the step, and what keeps it from having a route.
  struct Explained {
    std::size_t step;
    Cause cause;
  };

  Step* add(Kind kind, unsigned depth);
  void explainMatch(Lumo::IpAddr source);
  void addShorter(Lumo::IpAddr source, U32 length);
  Cause addUnresolved(Lumo::IpAddr address, U32 longerThan, unsigned depth, bool isSource);
  void explainRoute(const mrib::Route& route, unsigned depth);
  Cause explainLine(const mrib::Resolution& line, U8 installed, unsigned depth);
  Cause explainFault(const mrib::Resolution& line, std::size_t place, unsigned depth);
  std::string faultText(mrib::Unresolved fault) const;
  void explainThrough(const mrib::Resolution& line, unsigned depth);
  void explainUnicast();
  void explainKernel();
  void addInterface(U32 link, unsigned depth);

  const Router& router_;
  const kernel::ReversePath* kernel_;
  const Why why_;
  Explanation e_;
  std::map<Lumo::Prefix, Explained> explained_;
  std::vector<Trouble> troubles_;
};

/// A step as a sentence, escaped.
std::string textOf(const Router& router, const Explanation& explanation, const Explanation::Step& step);

/// What it all comes to: verdict and conclusion.
void conclude(const Router& router, Explanation& explanation,
              const std::vector<Explainer::Trouble>& troubles);

}  // namespace host
