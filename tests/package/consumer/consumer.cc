#include <iostream>

#include "Pim/MribSm/MribSm.h"
#include "Zan/GenericIf.h"

// What a program that links the library relies on: exceptions and objects keep their types across the border,
// values pass it, and every type has registered itself.

namespace {

int failures = 0;

void check(bool ok, const char* what) {
  if (ok) return;
  std::cerr << "not so: " << what << '\n';
  ++failures;
}

template <class Exception, class F>
bool throws(F f) {
  try {
    f();
  } catch (const Exception&) {
    return true;
  } catch (...) {
  }
  return false;
}

}  // namespace

int main() {
  namespace Rib = Routing::Multicast::Rib;
  check(throws<Zan::RangeException>([] { Lumo::Prefix("10.0.0.0/99"); }),
        "a range exception is caught as one");
  check(throws<Zan::Exception>([] { Quarn::Fib::RouteStatus table(-1); }),
        "an exception is caught by its base");

  const Zan::Ptr<Zan::PtrInterface> object = Zan::create<Rib::Config>("config");
  check(dynamic_cast<Rib::Config*>(object.get()), "an object is cast to its type");
  check(!dynamic_cast<Rib::Status*>(object.get()), "an object is not cast to another type");

  const auto sm = Rib::mribSmFactory(nullptr, nullptr, nullptr, Zan::create<Rib::Status>("mrib"), nullptr);
  const Zan::GenericIf access(sm);
  check(access.type() && access.type()->table->name == "Routing::Multicast::Rib::MribSm",
        "types have registered themselves");
  check(access.read("initialize").as<bool>(), "a value passes the border");
  using Shadow = Routing::Multicast::Shadow::Status;
  check(access.read("mribShadow").objectAs<Shadow>("shadow") == sm->mribShadow(),
        "an object passes the border");
  return failures;
}
