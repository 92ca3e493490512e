#include "target/PropertyListShape.h"

#include <algorithm>
#include <cstdint>
#include <optional>
#include <vector>

namespace target {
namespace {

// ---------------------------------------------------------------------------
// Binary lists: "bplist00", objects, an offset table, a 32-byte trailer.

constexpr std::size_t kHeaderSize = 8;
constexpr std::size_t kTrailerSize = 32;

std::uint64_t bigEndian(std::string_view bytes, std::size_t at, std::size_t size) {
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < size; ++i) {
        value = (value << 8) | static_cast<unsigned char>(bytes[at + i]);
    }
    return value;
}

class BinaryShape {
  public:
    explicit BinaryShape(std::string_view bytes) : bytes_(bytes) {}

    bool acceptable();

  private:
    // Where the references of a container start, and how many there are.
    struct Container {
        std::uint64_t referencesAt = 0;
        std::uint64_t referenceCount = 0;
    };
    enum class Object { scalar, container, invalid };
    struct Frame {
        std::uint64_t index;
        Container container;
        std::uint64_t next = 0;
        std::uint32_t childHeight = 0;
        std::uint64_t nodes = 1;
    };

    bool readTrailer();
    Object examine(std::uint64_t index, Container& container) const;
    Object examineFixed(unsigned marker, std::size_t at) const;
    Object examineSized(unsigned marker, std::size_t at) const;
    Object examineContainer(unsigned marker, std::size_t at, Container& container) const;
    std::optional<std::uint64_t> sizedLength(std::size_t at, std::size_t& end) const;
    bool fits(std::uint64_t at, std::uint64_t length) const {
        return at <= objectsEnd_ && length <= objectsEnd_ - at;
    }
    // libplist keeps strings as C strings and would silently cut one short
    // at a NUL character, and it cuts them short again when it writes text
    // that is not valid Unicode. Such a string makes the list unusable: an
    // ASCII string must be ASCII, a UTF-16 one valid UTF-16, neither with NUL.
    bool isCleanAscii(std::size_t at, std::uint64_t count) const {
        for (std::uint64_t i = 0; i < count; ++i) {
            const auto c = static_cast<unsigned char>(bytes_[at + i]);
            if (c == 0 || c >= 0x80) {
                return false;
            }
        }
        return true;
    }
    bool isCleanUtf16(std::size_t at, std::uint64_t count) const {
        for (std::uint64_t i = 0; i < count; ++i) {
            const std::uint64_t unit = bigEndian(bytes_, at + i * 2, 2);
            if (unit == 0 || (unit >= 0xDC00 && unit <= 0xDFFF)) {
                return false;  // NUL, or a low surrogate without its high one
            }
            if (unit >= 0xD800 && unit <= 0xDBFF) {
                if (i + 1 == count) {
                    return false;
                }
                const std::uint64_t low = bigEndian(bytes_, at + (i + 1) * 2, 2);
                if (low < 0xDC00 || low > 0xDFFF) {
                    return false;
                }
                ++i;
            }
        }
        return true;
    }
    bool visitChild(std::vector<Frame>& stack);
    bool finish(std::vector<Frame>& stack);

    std::string_view bytes_;
    std::size_t offsetSize_ = 0;
    std::size_t referenceSize_ = 0;
    std::uint64_t objectCount_ = 0;
    std::uint64_t top_ = 0;
    std::uint64_t objectsEnd_ = 0;     // where the offset table starts
    std::vector<std::uint8_t> state_;  // 0 not seen, 1 being walked, 2 done
    std::vector<std::uint16_t> height_;
    std::vector<std::uint32_t> nodes_;
};

bool BinaryShape::readTrailer() {
    if (bytes_.size() < kHeaderSize + 2 + kTrailerSize) {
        return false;
    }
    const std::size_t at = bytes_.size() - kTrailerSize;
    offsetSize_ = static_cast<unsigned char>(bytes_[at + 6]);
    referenceSize_ = static_cast<unsigned char>(bytes_[at + 7]);
    objectCount_ = bigEndian(bytes_, at + 8, 8);
    top_ = bigEndian(bytes_, at + 16, 8);
    objectsEnd_ = bigEndian(bytes_, at + 24, 8);
    if (offsetSize_ < 1 || offsetSize_ > 8 || referenceSize_ < 1 || referenceSize_ > 8) {
        return false;
    }
    if (objectCount_ < 1 || objectCount_ > kPropertyListNodeLimit || top_ >= objectCount_) {
        return false;
    }
    // The offset table sits between the objects and the trailer.
    return objectsEnd_ > kHeaderSize && objectsEnd_ <= at &&
           objectCount_ <= (at - objectsEnd_) / offsetSize_;
}

// The length that follows a marker whose low nibble is 0xF: an integer object
// of 1, 2, 4 or 8 bytes. `end` is set just past it.
std::optional<std::uint64_t> BinaryShape::sizedLength(std::size_t at, std::size_t& end) const {
    const unsigned marker = static_cast<unsigned char>(bytes_[at]);
    if ((marker & 0x0F) != 0x0F) {
        end = at + 1;
        return marker & 0x0F;
    }
    if (!fits(at + 1, 1)) {
        return std::nullopt;
    }
    const unsigned lengthMarker = static_cast<unsigned char>(bytes_[at + 1]);
    if ((lengthMarker & 0xF0) != 0x10 || (lengthMarker & 0x0F) > 3) {
        return std::nullopt;
    }
    const std::size_t size = std::size_t{1} << (lengthMarker & 0x0F);
    if (!fits(at + 2, size)) {
        return std::nullopt;
    }
    end = at + 2 + size;
    return bigEndian(bytes_, at + 2, size);
}

BinaryShape::Object BinaryShape::examine(std::uint64_t index, Container& container) const {
    const std::uint64_t at = bigEndian(bytes_, objectsEnd_ + index * offsetSize_, offsetSize_);
    if (at < kHeaderSize || at >= objectsEnd_) {
        return Object::invalid;
    }
    const unsigned marker = static_cast<unsigned char>(bytes_[at]);
    switch (marker >> 4) {
        case 0x4:
        case 0x5:
        case 0x6:
            return examineSized(marker, at);
        case 0xA:
        case 0xC:
        case 0xD:
            return examineContainer(marker, at, container);
        default:
            return examineFixed(marker, at);
    }
}

// An object whose size its marker alone tells.
BinaryShape::Object BinaryShape::examineFixed(unsigned marker, std::size_t at) const {
    const unsigned nibble = marker & 0x0F;
    switch (marker >> 4) {
        case 0x0:  // null, false, true, fill
            return nibble == 0x0 || nibble == 0x8 || nibble == 0x9 || nibble == 0xF
                       ? Object::scalar
                       : Object::invalid;
        case 0x1:  // integer of 2^n bytes
            return nibble <= 4 && fits(at + 1, std::uint64_t{1} << nibble) ? Object::scalar
                                                                           : Object::invalid;
        case 0x2:  // real of 4 or 8 bytes
            return (nibble == 2 || nibble == 3) && fits(at + 1, std::uint64_t{1} << nibble)
                       ? Object::scalar
                       : Object::invalid;
        case 0x3:  // date
            return nibble == 3 && fits(at + 1, 8) ? Object::scalar : Object::invalid;
        case 0x8:  // uid of n + 1 bytes
            return fits(at + 1, nibble + 1) ? Object::scalar : Object::invalid;
        default:
            return Object::invalid;
    }
}

// Data or a string: a length, then that many bytes or code units.
BinaryShape::Object BinaryShape::examineSized(unsigned marker, std::size_t at) const {
    std::size_t end = 0;
    const std::optional<std::uint64_t> length = sizedLength(at, end);
    if (!length) {
        return Object::invalid;
    }
    switch (marker >> 4) {
        case 0x4:  // data
            return fits(end, *length) ? Object::scalar : Object::invalid;
        case 0x5:  // ASCII string
            return fits(end, *length) && isCleanAscii(end, *length) ? Object::scalar
                                                                    : Object::invalid;
        default:  // UTF-16 string, length in code units
            return *length <= objectsEnd_ && fits(end, *length * 2) && isCleanUtf16(end, *length)
                       ? Object::scalar
                       : Object::invalid;
    }
}

// An array, a set or a dictionary (keys, then values): a count, then that many
// references, which `container` is told where to find.
BinaryShape::Object BinaryShape::examineContainer(unsigned marker,
                                                  std::size_t at,
                                                  Container& container) const {
    std::size_t end = 0;
    const std::optional<std::uint64_t> length = sizedLength(at, end);
    if (!length || *length > objectsEnd_) {
        return Object::invalid;
    }
    container.referencesAt = end;
    container.referenceCount = (marker >> 4) == 0xD ? *length * 2 : *length;
    return container.referenceCount <= objectsEnd_ &&
                   fits(end, container.referenceCount * referenceSize_)
               ? Object::container
               : Object::invalid;
}

// Takes the next reference of the innermost container: a scalar or a finished
// container is folded in at once, a new container is entered.
bool BinaryShape::visitChild(std::vector<Frame>& stack) {
    Frame& frame = stack.back();
    const std::uint64_t child = bigEndian(
        bytes_, frame.container.referencesAt + frame.next * referenceSize_, referenceSize_);
    ++frame.next;
    if (child >= objectCount_ || state_[child] == 1) {
        return false;  // a reference out of range, or a container inside itself
    }
    if (state_[child] == 0) {
        Container container;
        const Object object = examine(child, container);
        if (object == Object::invalid) {
            return false;
        }
        if (object == Object::container) {
            if (stack.size() >= static_cast<std::size_t>(kPropertyListDepthLimit)) {
                return false;
            }
            state_[child] = 1;
            stack.push_back(Frame{child, container});
            return true;
        }
        state_[child] = 2;
        height_[child] = 0;
        nodes_[child] = 1;
    }
    frame.childHeight = std::max<std::uint32_t>(frame.childHeight, height_[child]);
    frame.nodes += nodes_[child];
    return frame.nodes <= kPropertyListNodeLimit;
}

// Closes the innermost container and folds it into its parent.
bool BinaryShape::finish(std::vector<Frame>& stack) {
    const Frame done = stack.back();
    stack.pop_back();
    const std::uint32_t height = done.childHeight + 1;
    if (height > static_cast<std::uint32_t>(kPropertyListDepthLimit)) {
        return false;
    }
    state_[done.index] = 2;
    height_[done.index] = static_cast<std::uint16_t>(height);
    nodes_[done.index] = static_cast<std::uint32_t>(done.nodes);
    if (!stack.empty()) {
        Frame& parent = stack.back();
        parent.childHeight = std::max(parent.childHeight, height);
        parent.nodes += done.nodes;
        return parent.nodes <= kPropertyListNodeLimit;
    }
    return true;
}

bool BinaryShape::acceptable() {
    if (bytes_.substr(0, kHeaderSize) != "bplist00" || !readTrailer()) {
        return false;
    }
    Container container;
    const Object topObject = examine(top_, container);
    if (topObject != Object::container) {
        return topObject == Object::scalar;
    }
    state_.assign(objectCount_, 0);
    height_.assign(objectCount_, 0);
    nodes_.assign(objectCount_, 0);
    std::vector<Frame> stack;
    stack.reserve(kPropertyListDepthLimit);
    state_[top_] = 1;
    stack.push_back(Frame{top_, container});
    while (!stack.empty()) {
        const Frame& frame = stack.back();
        const bool ok =
            frame.next < frame.container.referenceCount ? visitChild(stack) : finish(stack);
        if (!ok) {
            return false;
        }
    }
    return true;
}

}  // namespace

bool binaryShapeIsAcceptable(std::string_view bytes) {
    return BinaryShape(bytes).acceptable();
}

}  // namespace target
