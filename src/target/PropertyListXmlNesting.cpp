#include <cstdint>
#include <optional>
#include <vector>

#include "target/PropertyListShape.h"

namespace target {
namespace {

// XML lists: an estimate of the nesting that errs upwards (see the header).

bool isSpace(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

bool startsWithIgnoringCase(std::string_view text, std::size_t at, std::string_view word) {
    if (text.size() - at < word.size()) {
        return false;
    }
    for (std::size_t i = 0; i < word.size(); ++i) {
        char c = text[at + i];
        if (c >= 'A' && c <= 'Z') {
            c = static_cast<char>(c - 'A' + 'a');
        }
        if (c != word[i]) {
            return false;
        }
    }
    return true;
}

// Valid UTF-8 without NUL: what XML text must be, and all that libplist can
// keep intact (it cuts strings short at a NUL or at invalid sequences).
bool isCleanUtf8(std::string_view text) {
    for (std::size_t i = 0; i < text.size();) {
        const auto lead = static_cast<unsigned char>(text[i]);
        if (lead == 0) {
            return false;
        }
        if (lead < 0x80) {
            ++i;
            continue;
        }
        std::size_t length = 0;
        std::uint32_t minimum = 0;
        std::uint32_t point = 0;
        if ((lead & 0xE0) == 0xC0) {
            length = 2, minimum = 0x80, point = lead & 0x1F;
        } else if ((lead & 0xF0) == 0xE0) {
            length = 3, minimum = 0x800, point = lead & 0x0F;
        } else if ((lead & 0xF8) == 0xF0) {
            length = 4, minimum = 0x10000, point = lead & 0x07;
        } else {
            return false;
        }
        if (text.size() - i < length) {
            return false;
        }
        for (std::size_t k = 1; k < length; ++k) {
            const auto next = static_cast<unsigned char>(text[i + k]);
            if ((next & 0xC0) != 0x80) {
                return false;
            }
            point = (point << 6) | (next & 0x3F);
        }
        if (point < minimum || point > 0x10FFFF || (point >= 0xD800 && point <= 0xDFFF)) {
            return false;
        }
        i += length;
    }
    return true;
}

class XmlNesting {
  public:
    explicit XmlNesting(std::string_view text) : text_(text) {}

    bool acceptable();

  private:
    enum class Kind : std::uint8_t { dictionary, array };

    void noteOpening(std::size_t at);
    void skipPast(std::string_view terminator);
    void skipMarkup(bool bracketsNest);
    void closingTag();
    void startTag();
    std::size_t skipSpaces(std::size_t at) const {
        while (at < text_.size() && isSpace(text_[at])) {
            ++at;
        }
        return at;
    }

    std::string_view text_;
    std::size_t at_ = 0;
    std::vector<Kind> open_;
    bool tooDeep_ = false;
    // After a start tag of a scalar element (string, key, plist and the
    // like) the next closing tag is taken to end that element, whatever its
    // name, so that a stray "</array>" inside a string never lowers the count.
    bool scalarOpen_ = false;
};

// Called for every '<' whatever the state: any "<dict" or "<array" (any case,
// any continuation of the name) counts, except "<dict/>" and "<dict />".
void XmlNesting::noteOpening(std::size_t at) {
    const std::size_t name = skipSpaces(at + 1);
    Kind kind;
    std::size_t end;
    if (startsWithIgnoringCase(text_, name, "dict")) {
        kind = Kind::dictionary;
        end = name + 4;
    } else if (startsWithIgnoringCase(text_, name, "array")) {
        kind = Kind::array;
        end = name + 5;
    } else {
        return;
    }
    if (text_.substr(skipSpaces(end), 2) == "/>") {
        return;
    }
    if (open_.size() >= static_cast<std::size_t>(kPropertyListDepthLimit)) {
        tooDeep_ = true;
        return;
    }
    open_.push_back(kind);
}

// Moves past the next `terminator`, or to the end.
void XmlNesting::skipPast(std::string_view terminator) {
    while (at_ < text_.size() && !tooDeep_) {
        if (text_.compare(at_, terminator.size(), terminator) == 0) {
            at_ += terminator.size();
            return;
        }
        if (text_[at_] == '<') {
            noteOpening(at_);
        }
        ++at_;
    }
}

// Moves past the '>' that ends a tag or a declaration, stepping over quoted
// text and, in a declaration, over bracketed parts.
void XmlNesting::skipMarkup(bool bracketsNest) {
    char quote = 0;
    int brackets = 0;
    for (; at_ < text_.size() && !tooDeep_; ++at_) {
        const char c = text_[at_];
        if (c == '<') {
            noteOpening(at_);
        }
        if (quote != 0) {
            quote = c == quote ? '\0' : quote;
        } else if (c == '"' || c == '\'') {
            quote = c;
        } else if (bracketsNest && c == '[') {
            ++brackets;
        } else if (bracketsNest && c == ']' && brackets > 0) {
            --brackets;
        } else if (c == '>' && brackets == 0) {
            ++at_;
            return;
        }
    }
}

void XmlNesting::closingTag() {
    const std::size_t name = at_ + 2;
    std::optional<Kind> kind;
    if (text_.compare(name, 4, "dict") == 0 && text_.substr(skipSpaces(name + 4), 1) == ">") {
        kind = Kind::dictionary;
    } else if (text_.compare(name, 5, "array") == 0 &&
               text_.substr(skipSpaces(name + 5), 1) == ">") {
        kind = Kind::array;
    }
    if (scalarOpen_) {
        scalarOpen_ = false;
    } else if (kind && !open_.empty() && open_.back() == *kind) {
        open_.pop_back();
    }
    ++at_;
    skipMarkup(false);
}

void XmlNesting::startTag() {
    const std::size_t name = skipSpaces(at_ + 1);
    const bool container =
        startsWithIgnoringCase(text_, name, "dict") || startsWithIgnoringCase(text_, name, "array");
    ++at_;
    skipMarkup(false);
    const bool selfClosing = at_ >= 2 && text_[at_ - 1] == '>' && text_[at_ - 2] == '/';
    scalarOpen_ = !container && !selfClosing;
}

bool XmlNesting::acceptable() {
    while (at_ < text_.size() && !tooDeep_) {
        if (text_[at_] != '<') {
            ++at_;
            continue;
        }
        noteOpening(at_);
        const std::string_view rest = text_.substr(at_);
        if (rest.starts_with("<!--")) {
            at_ += 4;
            skipPast("-->");
        } else if (rest.starts_with("<![CDATA[")) {
            at_ += 9;
            skipPast("]]>");
        } else if (rest.starts_with("<?")) {
            at_ += 2;
            skipPast("?>");
        } else if (rest.starts_with("<!")) {
            at_ += 2;
            skipMarkup(true);
        } else if (rest.starts_with("</")) {
            closingTag();
        } else {
            startTag();
        }
    }
    return !tooDeep_;
}

}  // namespace

bool xmlNestingIsAcceptable(std::string_view bytes) {
    return isCleanUtf8(bytes) && XmlNesting(bytes).acceptable();
}

}  // namespace target
