#include "template/FilterText.h"

#include <unicode/locid.h>
#include <unicode/ubrk.h>
#include <unicode/ucasemap.h>
#include <unicode/utext.h>
#include <unicode/utf8.h>

#include <cstring>
#include <memory>

#include "template/Context.h"
#include "template/Unicode.h"

namespace drovel::templating::filters {

std::optional<std::string_view> textView(const Token::Value& value, std::string& storage) {
    if (auto* string = value.asString()) return std::string_view(*string);
    if (value.asInteger() || value.asDecimal()) {
        storage.clear();
        value.appendStringValue(storage);
        return std::string_view(storage);
    }
    if (value.isNil()) return std::string_view();
    return std::nullopt;
}

std::optional<std::string> textOf(const Token::Value& value) {
    if (auto* string = value.asString()) return *string;
    std::string storage;
    if (!textView(value, storage)) return std::nullopt;
    return storage;
}

std::optional<std::string_view> textArgumentView(Filter::Arguments arguments, std::string& storage, std::size_t index) {
    if (arguments.size() <= index) return std::nullopt;
    return textView(arguments[index], storage).value_or(std::string_view());
}

std::optional<std::string> textArgument(Filter::Arguments arguments, std::size_t index) {
    if (arguments.size() <= index) return std::nullopt;
    return textOf(arguments[index]).value_or(std::string());
}

Token::Value arrayValue(const Token::Value& value) {
    if (value.asArray()) return value;
    Token::Value::Array elements;
    if (auto* range = value.asRange()) {
        // Counted before it is built: a range may hold billions of numbers.
        auto count = static_cast<std::uint64_t>(range->upper) - static_cast<std::uint64_t>(range->lower);
        checkValueSize(count > maximumValueSize ? maximumValueSize + 1 : (count + 1) * (valueElementOverhead + 8));
        for (std::int64_t n = range->lower;; ++n) {
            elements.push_back(Token::Value::integer(n));
            if (n == range->upper) break;
        }
    } else if (!value.isNil()) {
        elements.push_back(value);
    }
    return Token::Value::array(std::move(elements));
}

namespace text {

namespace {

bool isASCII(std::string_view text) { return unicode::isASCII(text); }

// One break iterator of each kind per thread, opened on first use: opening one costs far more
// than segmenting a notification's text.
class Segmenter {
public:
    explicit Segmenter(UBreakIteratorType type) : type_(type) {}

    // Sets the text; false when ICU cannot segment (no data), and the caller falls back.
    bool reset(std::string_view text) {
        UErrorCode status = U_ZERO_ERROR;
        if (!iterator_) iterator_.reset(ubrk_open(type_, uloc_getDefault(), nullptr, 0, &status));
        if (U_FAILURE(status) || !iterator_) return false;
        UText* opened = utext_openUTF8(utf8_.get(), text.data(), static_cast<int64_t>(text.size()), &status);
        if (U_FAILURE(status)) return false;
        if (!utf8_) utf8_.reset(opened);
        ubrk_setUText(iterator_.get(), utf8_.get(), &status);
        return U_SUCCESS(status);
    }
    UBreakIterator* get() const { return iterator_.get(); }

private:
    struct CloseIterator {
        void operator()(UBreakIterator* iterator) const { ubrk_close(iterator); }
    };
    struct CloseText {
        void operator()(UText* text) const { utext_close(text); }
    };
    UBreakIteratorType type_;
    std::unique_ptr<UBreakIterator, CloseIterator> iterator_;
    std::unique_ptr<UText, CloseText> utf8_;
};

// The code point boundaries, for when ICU has no data.
std::vector<std::size_t> codePointBoundaries(std::string_view text) {
    std::vector<std::size_t> out;
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(text.data());
    for (std::size_t i = 0; i < text.size();) {
        out.push_back(i);
        U8_FWD_1(bytes, i, text.size());
    }
    out.push_back(text.size());
    return out;
}

struct CloseCaseMap {
    void operator()(UCaseMap* map) const { ucasemap_close(map); }
};

// A case map for this thread: the current locale's, or the root locale's (no language rules);
// null without ICU data.
UCaseMap* caseMap(bool currentLocale) {
    auto open = [](const char* locale) {
        UErrorCode status = U_ZERO_ERROR;
        std::unique_ptr<UCaseMap, CloseCaseMap> opened(ucasemap_open(locale, 0, &status));
        if (U_FAILURE(status)) opened.reset();
        return opened;
    };
    thread_local std::unique_ptr<UCaseMap, CloseCaseMap> current = open(uloc_getDefault());
    thread_local std::unique_ptr<UCaseMap, CloseCaseMap> root = open("");
    return currentLocale ? current.get() : root.get();
}

// Whether ASCII letters title-case as in the root locale; Turkish and Azeri map "i" to dotted "İ".
bool asciiCaseIsPlain() {
    static const bool plain = [] {
        std::string_view language = icu::Locale::getDefault().getLanguage();
        return language != "tr" && language != "az";
    }();
    return plain;
}

using CaseFunction = int32_t (*)(const UCaseMap*, char*, int32_t, const char*, int32_t, UErrorCode*);

std::string mapCase(std::string_view text, CaseFunction function, bool currentLocale) {
    UCaseMap* map = caseMap(currentLocale);
    if (!map || text.empty()) return std::string(text);
    std::string out(text.size() + text.size() / 2 + 8, '\0');
    UErrorCode status = U_ZERO_ERROR;
    int32_t length = function(map, out.data(), static_cast<int32_t>(out.size()), text.data(),
                              static_cast<int32_t>(text.size()), &status);
    if (status == U_BUFFER_OVERFLOW_ERROR) {
        out.assign(static_cast<std::size_t>(length), '\0');
        status = U_ZERO_ERROR;
        length = function(map, out.data(), length, text.data(), static_cast<int32_t>(text.size()), &status);
    }
    if (U_FAILURE(status)) return std::string(text);
    out.resize(static_cast<std::size_t>(length));
    return out;
}

int32_t toTitle(const UCaseMap* map, char* out, int32_t capacity, const char* text, int32_t length, UErrorCode* status) {
    // ucasemap_utf8ToTitle takes a non-const map because it opens its word iterator lazily.
    return ucasemap_utf8ToTitle(const_cast<UCaseMap*>(map), out, capacity, text, length, status);
}

bool isAsciiLetterOrDigit(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
}

}  // namespace

std::vector<std::size_t> characterBoundaries(std::string_view text) {
    std::vector<std::size_t> out;
    if (isASCII(text)) {
        out.reserve(text.size() + 1);
        for (std::size_t i = 0; i < text.size(); ++i)
            if (i == 0 || text[i - 1] != '\r' || text[i] != '\n') out.push_back(i);
        out.push_back(text.size());
        return out;
    }
    thread_local Segmenter characters(UBRK_CHARACTER);
    if (!characters.reset(text)) return codePointBoundaries(text);
    for (int32_t position = ubrk_first(characters.get()); position != UBRK_DONE; position = ubrk_next(characters.get()))
        out.push_back(static_cast<std::size_t>(position));
    return out;
}

bool isSingleByteText(std::string_view text) {
    // A byte with its high bit set, or one that equals CR (a zero byte of the word XOR CRs, whose
    // subtraction borrows into its high bit), fails.
    constexpr std::uint64_t ones = 0x0101010101010101ull, highBits = 0x8080808080808080ull, carriageReturns = ones * '\r';
    return unicode::everyByte(
        text, [](std::uint64_t word) { return ((word | ((word ^ carriageReturns) - ones)) & highBits) == 0; },
        [](unsigned char byte) { return byte < 0x80 && byte != '\r'; });
}

std::size_t characterCount(std::string_view text) {
    if (isSingleByteText(text)) return text.size();
    if (isASCII(text)) {
        std::size_t count = text.size();
        for (std::size_t i = 1; i < text.size(); ++i)
            if (text[i - 1] == '\r' && text[i] == '\n') --count;
        return count;
    }
    return characterBoundaries(text).size() - 1;
}

namespace {

// Calls onWord with each word in order until it returns false.
template <class F>
void forEachWord(std::string_view text, F&& onWord) {
    thread_local Segmenter wordIterator(UBRK_WORD);
    if (!wordIterator.reset(text)) return;
    UBreakIterator* iterator = wordIterator.get();
    for (int32_t start = ubrk_first(iterator), end; (end = ubrk_next(iterator)) != UBRK_DONE; start = end) {
        // Segments of spaces and punctuation carry the "none" status.
        if (ubrk_getRuleStatus(iterator) >= UBRK_WORD_NONE_LIMIT &&
            !onWord(text.substr(static_cast<std::size_t>(start), static_cast<std::size_t>(end - start))))
            return;
    }
}

}  // namespace

std::vector<std::string_view> words(std::string_view text) {
    std::vector<std::string_view> out;
    forEachWord(text, [&](std::string_view word) {
        out.push_back(word);
        return true;
    });
    return out;
}

std::optional<std::string_view> firstWord(std::string_view text) {
    // A text that starts with ASCII letters and digits ends its first word at the first character
    // that can neither continue a word nor join two parts of one (". : ' , ;" and "_" can):
    // no need to ask the word iterator.
    std::size_t end = 0;
    while (end < text.size() && isAsciiLetterOrDigit(text[end])) ++end;
    if (end > 0) {
        if (end == text.size()) return text;
        auto next = static_cast<unsigned char>(text[end]);
        if (next < 0x80 && !std::strchr("_.:',;", next)) return text.substr(0, end);
    }
    std::optional<std::string_view> first;
    forEachWord(text, [&](std::string_view word) {
        first = word;
        return false;
    });
    return first;
}

std::string uppercased(std::string_view text) {
    if (isASCII(text)) {
        std::string out(text);
        for (char& c : out)
            if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
        return out;
    }
    return mapCase(text, ucasemap_utf8ToUpper, false);
}

std::string lowercased(std::string_view text) {
    if (isASCII(text)) {
        std::string out(text);
        for (char& c : out)
            if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
        return out;
    }
    return mapCase(text, ucasemap_utf8ToLower, false);
}

void capitalizeWord(std::string& text, std::size_t start, std::size_t length) {
    std::string_view word = std::string_view(text).substr(start, length);
    if (isASCII(word) && asciiCaseIsPlain()) {
        // Title case goes to the first letter or digit (a leading "_" stays); the rest is lowered.
        char* c = text.data() + start;
        char* end = c + length;
        while (c != end && !isAsciiLetterOrDigit(*c)) ++c;
        if (c == end) return;
        if (*c >= 'a' && *c <= 'z') *c = static_cast<char>(*c - 'a' + 'A');
        for (++c; c != end; ++c)
            if (*c >= 'A' && *c <= 'Z') *c = static_cast<char>(*c - 'A' + 'a');
        return;
    }
    text.replace(start, length, mapCase(word, toTitle, true));
}

std::string caseFolded(std::string_view text) {
    if (isASCII(text)) return lowercased(text);
    return mapCase(text, ucasemap_utf8FoldCase, false);
}

Searchable::Searchable(std::string_view text) : text_(text), ascii_(isASCII(text)) {
    if (ascii_) return;
    canonical_ = unicode::canonicalForm(text);
    text_ = canonical_;
    boundaries_.assign(text_.size() + 1, false);
    for (std::size_t position : characterBoundaries(text_)) boundaries_[position] = true;
}

bool Searchable::isBoundary(std::size_t position) const {
    if (!ascii_) return boundaries_[position];
    // In ASCII text only a CR LF pair is a character of two bytes.
    return position == 0 || position >= text_.size() || text_[position - 1] != '\r' || text_[position] != '\n';
}

std::size_t Searchable::find(const Searchable& needle, std::size_t from) const {
    std::string_view pattern = needle.text_;
    if (pattern.empty()) return std::string::npos;
    for (std::size_t position = text_.find(pattern, from); position != std::string::npos;
         position = text_.find(pattern, position + 1)) {
        if (isBoundary(position) && isBoundary(position + pattern.size())) return position;
    }
    return std::string::npos;
}

}  // namespace text
}  // namespace drovel::templating::filters
