#pragma once

#include <memory>
#include <optional>
#include <string>

struct _xmlDoc;  // NOLINT(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp): libxml2's name

namespace ombrix {

// An XML file in memory, and the two kinds of question that the configuration asks of it. The file
// is taken for hostile: only an ordinary file of limited size is read, nothing outside it is ever
// loaded, and a file that declares entities or default attributes, which can make little text into
// very much, is none. An element of hundreds of attributes ends the file.
class ConfigurationDocument {
 public:
  static constexpr std::size_t maximumBytes = std::size_t{128} * 1024;

  // `asWritten` keeps all white space and CDATA sections and takes well-formed XML only; `repaired`
  // makes what it can of a damaged file and drops the white space around texts.
  enum class Reading { asWritten, repaired };

  // Nothing when the file cannot be read, or parsed in this way to a document with a root element.
  [[nodiscard]] static std::optional<ConfigurationDocument> parse(const std::string& path,
                                                                  Reading reading);

  // A text in UTF-8, or what there was instead.
  struct Answer {
    bool oneNode = false;  // the query yielded exactly one node
    // Nothing when that node has no such attribute or child, empty when it cannot be read as text.
    std::optional<std::string> value;
  };

  // The attribute `name` of the one element that `query` yields.
  [[nodiscard]] Answer attribute(const char* query, const char* name) const;

  // The value of the first child node of the one element that `query` yields.
  [[nodiscard]] Answer firstChild(const char* query) const;

 private:
  struct DocumentDeleter {
    void operator()(_xmlDoc* owned) const;
  };
  using Document = std::unique_ptr<_xmlDoc, DocumentDeleter>;

  ConfigurationDocument(Document document, Reading reading);

  Document document;
  Reading reading;
};

}  // namespace ombrix
