#include <langinfo.h>
#include <locale.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>

#include "CommandTable.h"
#include "Escape.h"
#include "GraphDrawings.h"
#include "GraphTree.h"
#include "Graphviz.h"
#include "Output.h"
#include "WhoAnswers.h"

namespace host::commands {

namespace {

bool isUtf8() {
  const locale_t locale = newlocale(LC_CTYPE_MASK, "", nullptr);
  if (!locale) return false;
  const bool result = std::strcmp(nl_langinfo_l(CODESET, locale), "UTF-8") == 0;
  freelocale(locale);
  return result;
}

/// https://no-color.org
bool wantsColour(const Request& request) {
  const char* refused = std::getenv("NO_COLOR");
  const char* terminal = std::getenv("TERM");
  const bool isDumb = !terminal || std::strcmp(terminal, "dumb") == 0;
  return request.output.empty() && isatty(STDOUT_FILENO) && !(refused && *refused) && !isDumb;
}

/// As asked for; otherwise what the name of the file says.
std::string formatOf(const Request& request) {
  if (request.json) return "json";
  if (!request.format.empty()) return request.format;
  static const std::map<std::string, std::string> formats{
      {"", "tree"},   {".txt", "tree"},    {".svg", "svg"},  {".dot", "dot"},
      {".gv", "dot"}, {".mmd", "mermaid"}, {".json", "json"}};
  const auto known = formats.find(std::filesystem::path(request.output).extension().string());
  if (known != formats.end()) return known->second;
  throw UsageError(escaped(request.output) +
                   ": expected a name that ends in .svg, .dot, .gv, .mmd, .json or .txt, or else --format");
}

Json graphQuestion(const Request& request) {
  Json question = Json::object();
  if (request.most != 0) question["most"] = request.most;
  if (request.arguments.empty()) return question;
  const std::string& text = request.arguments.front();
  question[text.find('/') != text.npos ? "prefix" : "source"] = jsonText(text);
  return question;
}

std::string treeWith(const Request& request, const Backend& backend, const Json& graph) {
  std::size_t drawn = graph.at("nodes").size();
  std::string text = backend.name() + "\n\n";
  text += output::treeOf(graph, {isUtf8(), wantsColour(request)}) + '\n' + output::summaryOf(graph) + '\n';
  if (drawn < graph.at("all")) {
    text += output::counted(graph["all"], "node") + " are drawn as " + std::to_string(drawn) +
            "; --most says how many there may be\n";
  }
  if (graph.at("stale") == true) text += "This may be out of date: the daemon is reading the kernel.\n";
  return text;
}

std::string drawn(const Request& request, const Backend& backend, const Json& graph,
                  const std::string& format) {
  if (format == "json") return dump(documentOf(backend, graph), 2);
  if (format == "dot") return output::dotOf(graph);
  if (format == "svg") return output::svgOf(output::dotOf(graph));
  if (format == "mermaid") return output::mermaidOf(graph);
  return treeWith(request, backend, graph);
}

}  // namespace

int graph(const Request& request) {
  const std::string format = formatOf(request);
  const auto backend = backendFor(request);
  const Json graph = backend->call("org.mrib.Graph", graphQuestion(request));
  if (graph.at("nodes").empty() && !request.arguments.empty() && format == "tree") {
    put(request.output, escaped(request.arguments.front()) + ": " + output::summaryOf(graph) + '\n');
  } else {
    put(request.output, drawn(request, *backend, graph, format));
  }
  const bool isNothing = graph["nodes"].empty() && !request.arguments.empty();
  return codeOf(request, graph.at("stale") == true, isNothing ? noRpfRoute : found);
}

}  // namespace host::commands
