#include "Report.h"

#include <fmt/format.h>

#include <algorithm>

#include "GraphText.h"
#include "Html.h"
#include "Picture.h"
#include "ReportSections.h"
#include "ReportStyle.h"

namespace host::output {

namespace {

struct Section {
  std::string id;
  std::string title;
  std::string body;
};

std::string htmlOf(const Section& section) {
  return fmt::format(
      "<section id=\"{0}\" aria-labelledby=\"{0}-title\">\n<h2 id=\"{0}-title\">{1}</h2>\n{2}</section>\n\n",
      section.id, section.title, section.body);
}

std::string navigationOf(const std::vector<Section>& sections) {
  std::string text = "<nav aria-label=\"Sections\"><ul>\n";
  for (const Section& s : sections) text += fmt::format("<li><a href=\"#{}\">{}</a></li>\n", s.id, s.title);
  return text + "</ul></nav>\n";
}

}  // namespace

std::string reportOf(const ReportContent& content) {
  const std::string title =
      "Multicast RIB" + (content.machine.empty() ? "" : " of " + html::name(content.machine));
  const std::vector<Section> sections{{"summary", "Summary", sections::summary(content)},
                                      {"unresolved", "Not resolved", sections::unresolved(content)},
                                      {"flows", "Flows", sections::flows(content)},
                                      {"mrib", "MRIB", sections::routes(content)},
                                      {"graph", "What leads where", sections::graph(content)},
                                      {"history", "History", sections::history(content)},
                                      {"input", "Input", sections::input(content)},
                                      {"versions", "Versions", sections::versions(content)}};
  std::string page = fmt::format(pageHead, title, html::text(content.time), pageStyle);
  page += fmt::format("<header>\n<h1>{}</h1>\n<p>{}, answered by {}</p>\n</header>\n", title,
                      html::text(content.time), html::text(content.answeredBy));
  page += navigationOf(sections) + "<main id=\"main\">\n";
  for (const Section& section : sections) page += htmlOf(section);
  return page + "</main>\n</body>\n</html>\n";
}

}  // namespace host::output
