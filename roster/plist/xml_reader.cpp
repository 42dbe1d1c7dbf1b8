// Makes expat declare its protection against entity expansion, which distributions build it with.
#ifndef XML_DTD
#define XML_DTD
#endif
#include <expat.h>

#include <algorithm>
#include <exception>
#include <memory>
#include <new>
#include <optional>

#include "roster/base/single_line.h"
#include "roster/base/text_table.h"
#include "roster/plist/xml_property_list.h"

namespace roster {

namespace {

/// The document type of property lists declares a handful. Each declaration costs time at every element, so
/// their number must be bounded.
constexpr std::size_t maximumAttributeDeclarations = 64;

/// References in texts are refused. In attribute values, which are not used, they may expand this far.
constexpr float maximumAmplification = 2;
constexpr unsigned long long amplificationAllowance = 64ULL * 1024;

class XmlReader {
 public:
  explicit XmlReader(Soundness soundness) : parser_(XML_ParserCreate(nullptr)), builder_(soundness) {
    if (!parser_) throw std::bad_alloc();
    // Otherwise expat draws one itself, and ends the process where the system refuses random numbers. 0 is
    // none.
    XML_SetHashSalt(parser(), static_cast<unsigned long>(textHashSeed() | 1U));
    XML_SetUserData(parser(), this);
    XML_SetElementHandler(parser(), onStart, onEnd);
    XML_SetCharacterDataHandler(parser(), onText);
    XML_SetAttlistDeclHandler(parser(), onAttributeDeclaration);
    // With a default handler in place, references to declared entities are reported instead of expanded.
    XML_SetDefaultHandler(parser(), [](void*, const XML_Char*, int) {});
    XML_SetSkippedEntityHandler(parser(), onEntity);
    XML_SetExternalEntityRefHandler(parser(), onExternalEntity);
    XML_SetBillionLaughsAttackProtectionMaximumAmplification(parser(), maximumAmplification);
    XML_SetBillionLaughsAttackProtectionActivationThreshold(parser(), amplificationAllowance);
  }

  Result<Value> read(std::string_view text) {
    // expat copies what it is given, and looks at an unfinished token again with every piece. A fixed number
    // of pieces bounds the memory to a part of the file, and the time to a multiple of it.
    constexpr std::size_t pieces = 16;
    constexpr std::size_t smallestPiece = std::size_t{1} << 20U;
    constexpr std::size_t largestPiece = std::size_t{1} << 30U;
    const std::size_t pieceSize = std::clamp(text.size() / pieces + 1, smallestPiece, largestPiece);
    bool isLast = false;
    while (!isLast) {
      const std::string_view piece = text.substr(0, pieceSize);
      text.remove_prefix(piece.size());
      isLast = text.empty();
      if (XML_Parse(parser(), piece.data(), static_cast<int>(piece.size()), isLast ? 1 : 0) !=
          XML_STATUS_OK) {
        return failure();
      }
    }
    return builder_.takeValue();
  }

 private:
  struct ParserDeleter {
    void operator()(XML_Parser parser) const { XML_ParserFree(parser); }
  };

  XML_Parser parser() const { return parser_.get(); }

  Error failure() const {
    if (exception_) std::rethrow_exception(exception_);
    if (refusal_) return *refusal_;
    const XML_Error code = XML_GetErrorCode(parser());
    if (code == XML_ERROR_NO_MEMORY) throw std::bad_alloc();
    return {std::errc::bad_message, atCurrentLine(XML_ErrorString(code))};
  }

  std::string atCurrentLine(std::string_view what) const {
    return "line " + std::to_string(XML_GetCurrentLineNumber(parser())) + ": " + std::string(what);
  }

  /// Runs one step of the reading, and ends the reading when the step fails or throws. Exceptions must not
  /// pass through expat, which is written in C.
  template <class Step>
  static void step(void* userData, const Step& run) noexcept {
    auto& reader = *static_cast<XmlReader*>(userData);
    // After it was told to stop, expat still reports what it has begun with.
    if (reader.refusal_ || reader.exception_) return;
    try {
      const Result<> done = run(reader);
      if (done) return;
      reader.refusal_ = Error(done.error().code, reader.atCurrentLine(done.error().message));
    } catch (...) {
      reader.exception_ = std::current_exception();
    }
    XML_StopParser(reader.parser(), XML_FALSE);
  }

  static void XMLCALL onStart(void* userData, const XML_Char* name, const XML_Char** /*attributes*/) {
    step(userData, [name](XmlReader& reader) { return reader.builder_.startElement(name); });
  }

  static void XMLCALL onEnd(void* userData, const XML_Char* /*name*/) {
    step(userData, [](XmlReader& reader) { return reader.builder_.endElement(); });
  }

  static void XMLCALL onText(void* userData, const XML_Char* text, int length) {
    step(userData, [text, length](XmlReader& reader) {
      return reader.builder_.addText({text, static_cast<std::size_t>(length)});
    });
  }

  static void XMLCALL onAttributeDeclaration(void* userData, const XML_Char* /*element*/,
                                             const XML_Char* /*name*/, const XML_Char* /*type*/,
                                             const XML_Char* /*value*/, int /*isRequired*/) {
    step(userData, [](XmlReader& reader) -> Result<> {
      if (++reader.attributeDeclarations_ <= maximumAttributeDeclarations) return {};
      return Error(std::errc::bad_message, "a document type with too many attributes");
    });
  }

  static void XMLCALL onEntity(void* userData, const XML_Char* name, int isParameterEntity) {
    // Parameter entities stand only in document types, which are skipped.
    if (isParameterEntity != 0) return;
    step(userData, [name](XmlReader&) -> Result<> {
      constexpr std::size_t shownName = 40;
      return Error(std::errc::bad_message,
                   "an entity that XML does not define: &" + clipped(name, shownName) + ";");
    });
  }

  static int XMLCALL onExternalEntity(XML_Parser parser, const XML_Char* /*context*/,
                                      const XML_Char* /*base*/, const XML_Char* /*systemId*/,
                                      const XML_Char* /*publicId*/) {
    step(XML_GetUserData(parser),
         [](XmlReader&) -> Result<> { return Error(std::errc::bad_message, "an entity outside the file"); });
    return XML_STATUS_ERROR;
  }

  std::unique_ptr<XML_ParserStruct, ParserDeleter> parser_;
  XmlBuilder builder_;
  std::size_t attributeDeclarations_ = 0;
  /// What ended the reading, if it was one of the steps.
  std::optional<Error> refusal_;
  std::exception_ptr exception_;
};

}  // namespace

Result<Value> parseXmlPropertyList(const Bytes& bytes, Soundness soundness) {
  return XmlReader(soundness).read(bytes.text());
}

}  // namespace roster
