#include "Utilities/Configuration/ConfigurationDocument.h"

#include <libxml/SAX2.h>
#include <libxml/parser.h>
#include <libxml/parserInternals.h>
#include <libxml/tree.h>
#include <libxml/xpath.h>

#include <string_view>
#include <utility>

#include "Utilities/FileUtils.h"
#include "Utilities/Text.h"

namespace ombrix {

namespace {

struct ParserDeleter {
  void operator()(xmlParserCtxt* parser) const { xmlFreeParserCtxt(parser); }
};
struct XPathContextDeleter {
  void operator()(xmlXPathContext* context) const { xmlXPathFreeContext(context); }
};
struct XPathObjectDeleter {
  void operator()(xmlXPathObject* object) const { xmlXPathFreeObject(object); }
};
struct StringDeleter {
  void operator()(xmlChar* text) const { xmlFree(text); }
};
using Text = std::unique_ptr<xmlChar, StringDeleter>;

const xmlChar* bytes(const char* text) { return reinterpret_cast<const xmlChar*>(text); }

// What is left of a damaged file may be no text at all; nobody is to find its bytes in a log.
std::optional<std::string> toString(const Text& text) {
  if (!text) return std::nullopt;
  return utf8OrNothing(reinterpret_cast<const char*>(text.get())).value_or("");
}

std::string trimmed(std::string_view text) {
  constexpr std::string_view blanks = " \t\r\n";
  const std::size_t first = text.find_first_not_of(blanks);
  if (first == std::string_view::npos) return {};
  return std::string(text.substr(first, text.find_last_not_of(blanks) - first + 1));
}

// Without XML_PARSE_HUGE, libxml2's own limits of depth and length are in force.
constexpr int commonOptions = XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING;
constexpr int repairOptions = XML_PARSE_RECOVER | XML_PARSE_NOBLANKS | XML_PARSE_NOCDATA;

// XML_PARSE_NONET keeps libxml2 from the network only; a local file is none of its business either.
xmlParserInputPtr loadNothing(const char* /*url*/, const char* /*id*/, xmlParserCtxtPtr /*ctxt*/) {
  return nullptr;
}

// A file that declares entities, or attributes with defaults, makes little text into much; no
// configuration needs either. Both end the parse, which has then not come to the root element.
void refuseEntity(void* parser, const xmlChar* /*name*/, int /*type*/, const xmlChar* /*publicId*/,
                  const xmlChar* /*systemId*/, xmlChar* /*content*/) {
  xmlStopParser(static_cast<xmlParserCtxtPtr>(parser));
}

void refuseAttribute(void* parser, const xmlChar* /*element*/, const xmlChar* /*name*/,
                     int /*type*/, int /*kind*/, const xmlChar* /*value*/,
                     xmlEnumerationPtr values) {
  xmlFreeEnumeration(values);
  xmlStopParser(static_cast<xmlParserCtxtPtr>(parser));
}

// libxml2 looks for the end of an element's list of attributes whenever it adds one: a file made of
// nothing else would keep the agent busy for seconds. A setting has two.
constexpr int mostAttributes = 256;

void beginElement(void* parser, const xmlChar* name, const xmlChar* prefix, const xmlChar* uri,
                  int namespaceCount, const xmlChar** namespaces, int attributeCount,
                  int defaultedCount, const xmlChar** attributes) {
  if (attributeCount > mostAttributes) {
    xmlStopParser(static_cast<xmlParserCtxtPtr>(parser));
    return;
  }
  xmlSAX2StartElementNs(parser, name, prefix, uri, namespaceCount, namespaces, attributeCount,
                        defaultedCount, attributes);
}

void refuseImmodesty(xmlParserCtxt& parser) {
  parser.sax->entityDecl = refuseEntity;
  parser.sax->attributeDecl = refuseAttribute;
  parser.sax->startElementNs = beginElement;
}

// The one element that `query` yields, or null.
xmlNode* onlyElement(xmlDoc* document, const char* query) {
  const std::unique_ptr<xmlXPathContext, XPathContextDeleter> context(xmlXPathNewContext(document));
  if (!context) return nullptr;
  const std::unique_ptr<xmlXPathObject, XPathObjectDeleter> result(
      xmlXPathEvalExpression(bytes(query), context.get()));
  if (!result || result->nodesetval == nullptr || result->nodesetval->nodeNr != 1) return nullptr;
  return result->nodesetval->nodeTab[0];
}

}  // namespace

void ConfigurationDocument::DocumentDeleter::operator()(xmlDoc* owned) const { xmlFreeDoc(owned); }

ConfigurationDocument::ConfigurationDocument(Document document, Reading reading)
    : document(std::move(document)), reading(reading) {}

std::optional<ConfigurationDocument> ConfigurationDocument::parse(const std::string& path,
                                                                  Reading reading) {
  const std::optional<std::string> contents = FileUtils::readFile(path, maximumBytes);
  if (!contents) return std::nullopt;
  const std::unique_ptr<xmlParserCtxt, ParserDeleter> parser(xmlNewParserCtxt());
  if (!parser) return std::nullopt;

  xmlSetExternalEntityLoader(loadNothing);
  refuseImmodesty(*parser);
  const int options = commonOptions | (reading == Reading::repaired ? repairOptions : 0);
  Document document(xmlCtxtReadMemory(parser.get(), contents->data(),
                                      static_cast<int>(contents->size()), nullptr, nullptr,
                                      options));
  if (!document || xmlDocGetRootElement(document.get()) == nullptr) return std::nullopt;
  return ConfigurationDocument(std::move(document), reading);
}

ConfigurationDocument::Answer ConfigurationDocument::attribute(const char* query,
                                                               const char* name) const {
  xmlNode* element = onlyElement(document.get(), query);
  if (element == nullptr) return {};
  return {true, toString(Text(xmlGetNoNsProp(element, bytes(name))))};
}

ConfigurationDocument::Answer ConfigurationDocument::firstChild(const char* query) const {
  const xmlNode* element = onlyElement(document.get(), query);
  if (element == nullptr) return {};
  if (element->children == nullptr) return {true, std::nullopt};
  std::optional<std::string> value = toString(Text(xmlNodeGetContent(element->children)));
  if (value && reading == Reading::repaired) value = trimmed(*value);
  return {true, value};
}

}  // namespace ombrix
