#pragma once
// HTML escaping and unescaping of character references, for the template filters "escape" and
// "escape_once". Texts are UTF-8; any thread may call these functions.

#include <atomic>
#include <string>
#include <string_view>

#include "drovel/core/Error.h"

namespace drovel::html {

// Process-wide defaults of htmlEscape's arguments; each is false until set.
struct HTMLEscapeOptions {
    static inline std::atomic<bool> allowUnsafeSymbols{false};
    static inline std::atomic<bool> decimal{false};
    static inline std::atomic<bool> encodeEverything{false};
    static inline std::atomic<bool> useNamedReferences{false};
};

// Escapes `text` character by character (a character is a user-perceived character, possibly
// several code points):
// - unless `encodeEverything`, a character that is one ASCII code point stays as it is when
//   `allowUnsafeSymbols` is set or it is none of the unsafe symbols " & ' < >;
// - otherwise, with `useNamedReferences`, a character that has a named reference becomes it;
// - otherwise each code point becomes "&#x<upper-case hex>;" ("&#<decimal>;" with `decimal`),
//   except that, unless `encodeEverything`, ASCII code points other than the unsafe symbols stay.
// Bytes that are not UTF-8 count as U+FFFD. The result is ASCII.
std::string htmlEscape(std::string_view text,
                       bool allowUnsafeSymbols = HTMLEscapeOptions::allowUnsafeSymbols,
                       bool decimal = HTMLEscapeOptions::decimal,
                       bool encodeEverything = HTMLEscapeOptions::encodeEverything,
                       bool useNamedReferences = HTMLEscapeOptions::useNamedReferences);

// A malformed reference (or malformed UTF-8) found by strict unescaping.
class ParseError : public core::Error {
public:
    enum class Kind {
        IllegalArgument,             // the text is not UTF-8
        MissingSemicolon,            // a known name or a numeric reference without its ";"
        InvalidNamedReference,       // "&name;" with a name that is not in the table
        OutsideValidUnicodeRange,    // a numeric reference above U+10FFFF
        MalformedNumericReference,   // "&#" or "&#x" without digits
        DeprecatedNumericReference,  // a control other than whitespace, or a noncharacter
        DisallowedNumericReference,  // U+0000 or a surrogate
    };

    ParseError(Kind kind, std::string text) : kind_(kind), text_(std::move(text)) {}
    Kind kind() const { return kind_; }
    const std::string& text() const { return text_; }
    // "<kind name>: <text>".
    std::string description() const override;

private:
    Kind kind_;
    std::string text_;
};

// The kind's name as written in Kind ("MissingSemicolon").
std::string_view string(ParseError::Kind kind);

// Replaces character references with the text they stand for; never fails. A reference that
// cannot be decoded stays as it stands, except that numeric references to surrogates or above
// U+10FFFF become U+FFFD. Every other code point is decoded as written, so that unescaping undoes
// htmlEscape for any text (unless allowUnsafeSymbols left an "&" of the text as it was). Legacy names without ";" ("&amp", "&copy") are decoded unless "="
// follows (a URL query, not text). Bytes that are not UTF-8 become U+FFFD.
std::string htmlUnescape(std::string_view text);

// With `strict` false, htmlUnescape(text). With `strict` true, the first malformed reference fails
// with a ParseError of the kind listed in ParseError::Kind (a name or numeric reference without
// ";", an unknown name followed by ";", "&#" without digits, a numeric reference that is out of
// range, disallowed or deprecated), and so does malformed UTF-8. An "&" that starts no reference
// ("a & b", "AT&T") is plain text in both modes.
core::Result<std::string> htmlUnescape(std::string_view text, bool strict);

}  // namespace drovel::html
