#include "target/PropertyList.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <utility>

#include "base/SystemCalls.h"
#include "base/Trap.h"
#include "base/UniqueFd.h"
#include "target/PropertyListShape.h"

namespace target {
namespace {

constexpr std::string_view kBinaryMagic = "bplist00";

PropertyList::ReadFailure failureForErrno(int error) {
    switch (error) {
        case ENOENT:
        case ENOTDIR:
            return PropertyList::ReadFailure::missing;
        case ELOOP:  // O_NOFOLLOW met a link
        case ENXIO:  // a socket
            return PropertyList::ReadFailure::notARegularFile;
        case EFBIG:
        case EOVERFLOW:
            return PropertyList::ReadFailure::tooLarge;
        default:
            return PropertyList::ReadFailure::unreadable;
    }
}

void checkName(std::string_view name) {
    if (name.empty() || name == "." || name == ".." || name.find('/') != std::string_view::npos) {
        base::trap("a property-list file name must be a single path component");
    }
}

// Reads at most `limit + 1` bytes, so that a file larger than the limit is
// recognised without reading all of it. False on a read error.
bool readUpTo(int fd, std::size_t limit, std::size_t sizeHint, std::string& bytes) {
    bytes.clear();
    bytes.reserve(std::min(sizeHint, limit) + 1);
    return sys::readAll(fd, bytes, limit);
}

bool hasNul(std::string_view text) {
    return text.find('\0') != std::string_view::npos;
}

}  // namespace

std::optional<PropertyList> PropertyList::parse(std::string_view bytes) {
    if (bytes.empty() || bytes.size() > kMaximumSize) {
        return std::nullopt;
    }
    plist_t root = nullptr;
    const auto length = static_cast<std::uint32_t>(bytes.size());
    Format format = Format::xml;
    if (bytes.starts_with(kBinaryMagic)) {
        if (!binaryShapeIsAcceptable(bytes)) {
            return std::nullopt;
        }
        format = Format::binary;
        plist_from_bin(bytes.data(), length, &root);
    } else {
        if (!xmlNestingIsAcceptable(bytes)) {
            return std::nullopt;
        }
        plist_from_xml(bytes.data(), length, &root);
    }
    if (root == nullptr) {
        return std::nullopt;
    }
    return PropertyList(root, format);
}

PropertyList::ReadResult PropertyList::readAt(int directoryFD, std::string_view name) {
    checkName(name);
    const std::string path(name);
    // Look before opening: a FIFO or a device is never opened at all.
    struct stat before {};
    if (sys::statAt(directoryFD, path.c_str(), before) != 0) {
        return failureForErrno(errno);
    }
    if (!S_ISREG(before.st_mode)) {
        return ReadFailure::notARegularFile;
    }
    // Non-blocking in case something else was swapped in since the look;
    // readFrom() checks the type again on the descriptor.
    const base::UniqueFd fd(sys::openFileAt(directoryFD, path.c_str()));
    if (!fd) {
        return failureForErrno(errno);
    }
    return readFrom(fd.get());
}

PropertyList::ReadResult PropertyList::readFrom(int fd) {
    struct stat status {};
    if (::fstat(fd, &status) != 0) {
        return failureForErrno(errno);
    }
    if (!S_ISREG(status.st_mode)) {
        return ReadFailure::notARegularFile;
    }
    if (status.st_size < 0 || static_cast<std::uint64_t>(status.st_size) > kMaximumSize) {
        return ReadFailure::tooLarge;
    }
    std::string bytes;
    if (!readUpTo(fd, kMaximumSize, static_cast<std::size_t>(status.st_size), bytes)) {
        return failureForErrno(errno);
    }
    if (bytes.size() > kMaximumSize) {
        return ReadFailure::tooLarge;  // it grew while being read
    }
    std::optional<PropertyList> list = parse(bytes);
    if (!list) {
        return ReadFailure::malformed;
    }
    return std::move(*list);
}

PropertyList PropertyList::adopt(plist_t root, Format format) {
    if (root == nullptr) {
        base::trap("a property list needs a root node");
    }
    return PropertyList(root, format);
}

PropertyList::PropertyList(PropertyList&& other) noexcept
    : root_(std::exchange(other.root_, nullptr)), format_(other.format_) {}

PropertyList& PropertyList::operator=(PropertyList&& other) noexcept {
    if (this != &other) {
        if (root_ != nullptr) {
            plist_free(root_);
        }
        root_ = std::exchange(other.root_, nullptr);
        format_ = other.format_;
    }
    return *this;
}

PropertyList::~PropertyList() {
    if (root_ != nullptr) {
        plist_free(root_);
    }
}

bool PropertyList::isDictionary() const {
    return root_ != nullptr && plist_get_node_type(root_) == PLIST_DICT;
}

std::optional<std::string> PropertyList::stringValue(std::string_view key) const {
    if (!isDictionary() || hasNul(key)) {
        return std::nullopt;
    }
    return stringOf(plist_dict_get_item(root_, std::string(key).c_str()));
}

void PropertyList::forEachEntry(plist_t dictionary,
                                const std::function<void(const char* key, plist_t value)>& visit) {
    if (dictionary == nullptr || plist_get_node_type(dictionary) != PLIST_DICT) {
        return;
    }
    plist_dict_iter iterator = nullptr;
    plist_dict_new_iter(dictionary, &iterator);
    for (;;) {
        char* key = nullptr;
        plist_t value = nullptr;
        plist_dict_next_item(dictionary, iterator, &key, &value);
        if (value == nullptr) {
            std::free(key);
            break;
        }
        visit(key, value);
        std::free(key);
    }
    std::free(iterator);
}

std::vector<std::string> PropertyList::keys() const {
    std::vector<std::string> result;
    if (!isDictionary()) {
        return result;
    }
    forEachEntry(root_, [&result](const char* key, plist_t) {
        if (key != nullptr) {
            result.emplace_back(key);
        }
    });
    return result;
}

std::size_t PropertyList::removeKeys(const std::vector<std::string>& keys) {
    std::size_t removed = 0;
    if (!isDictionary()) {
        return removed;
    }
    for (const std::string& key : keys) {
        if (hasNul(key)) {
            continue;  // no key of the list can hold a NUL
        }
        while (plist_dict_get_item(root_, key.c_str()) != nullptr) {
            plist_dict_remove_item(root_, key.c_str());
            ++removed;
        }
    }
    return removed;
}

std::optional<std::string> PropertyList::serialized() const {
    char* bytes = nullptr;
    std::uint32_t length = 0;
    if (format_ == Format::binary) {
        plist_to_bin(root_, &bytes, &length);
    } else {
        plist_to_xml(root_, &bytes, &length);
    }
    if (bytes == nullptr) {
        return std::nullopt;
    }
    std::string result(bytes, length);
    if (format_ == Format::binary) {
        plist_to_bin_free(bytes);
    } else {
        plist_to_xml_free(bytes);
    }
    return result;
}

std::optional<std::string> PropertyList::stringOf(plist_t node) {
    if (node == nullptr || plist_get_node_type(node) != PLIST_STRING) {
        return std::nullopt;
    }
    std::uint64_t length = 0;
    const char* text = plist_get_string_ptr(node, &length);
    return text == nullptr ? std::string() : std::string(text, length);
}

std::optional<std::string> PropertyList::dataOf(plist_t node) {
    if (node == nullptr || plist_get_node_type(node) != PLIST_DATA) {
        return std::nullopt;
    }
    std::uint64_t length = 0;
    const char* bytes = plist_get_data_ptr(node, &length);
    return bytes == nullptr ? std::string() : std::string(bytes, length);
}

}  // namespace target
