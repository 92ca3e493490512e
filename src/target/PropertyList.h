#pragma once

#include <plist/plist.h>

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace target {

// One property list in memory, XML or binary, owned for its lifetime (a thin
// RAII layer over libplist). It remembers the format it was read in, so that
// a rewrite keeps the file as it was.
//
// Everything that comes from a file is treated as hostile: bytes that are
// truncated, point outside themselves, nest absurdly deep, expand into
// millions of nodes or are larger than kMaximumSize give "no value", never a
// crash or a hang (see PropertyListShape.h for the limits and why).
class PropertyList {
  public:
    enum class Format { xml, binary };

    // Larger files are never property lists this program cares about.
    static constexpr std::size_t kMaximumSize = 16 * 1024 * 1024;

    // Why a property-list file gave no value.
    enum class ReadFailure {
        missing,          // nothing by that name (or a parent is missing)
        notARegularFile,  // a link, folder, FIFO, socket or device: never read
        tooLarge,         // more than kMaximumSize bytes
        unreadable,       // the system refused to open or read it
        malformed,        // read, but not a property list this class accepts
    };
    using ReadResult = std::variant<PropertyList, ReadFailure>;

    // Parses XML or binary (binary when the bytes begin with "bplist00").
    static std::optional<PropertyList> parse(std::string_view bytes);

    // Reads the file `name` inside the open folder `directoryFD`. `name` is a
    // single path component: empty, "/"-containing, "." and ".." names stop
    // the process (a programming error). A link is never followed and
    // anything but a regular file is refused before it is opened, so a FIFO
    // cannot block the caller; the file is opened read-only, non-blocking.
    static ReadResult readAt(int directoryFD, std::string_view name);

    // Reads an already opened descriptor, which must be a regular file. The
    // descriptor is neither closed nor kept.
    static ReadResult readFrom(int fd);

    // Takes ownership of a tree made with libplist (for writers).
    static PropertyList adopt(plist_t root, Format format);

    PropertyList(PropertyList&& other) noexcept;
    PropertyList& operator=(PropertyList&& other) noexcept;
    PropertyList(const PropertyList&) = delete;
    PropertyList& operator=(const PropertyList&) = delete;
    ~PropertyList();

    Format format() const { return format_; }
    bool isDictionary() const;

    // The string stored under `key` of the top-level dictionary; nothing when
    // the top level is not a dictionary, the key is missing or the value is
    // not a string. The bytes are returned exactly (a NUL included).
    std::optional<std::string> stringValue(std::string_view key) const;

    // The keys of the top-level dictionary, in file order; empty otherwise.
    std::vector<std::string> keys() const;

    // Removes these keys from the top-level dictionary where present and
    // returns how many were removed (0 when it is not a dictionary).
    std::size_t removeKeys(const std::vector<std::string>& keys);

    // The list written out in the format it was read in (or adopted with).
    std::optional<std::string> serialized() const;

    // The libplist tree, still owned by this object, for readers that need
    // nested values. Do not free it.
    plist_t root() const { return root_; }

    // Helpers for such readers: the value of a string or data node, or
    // nothing when the node is missing or of another type.
    static std::optional<std::string> stringOf(plist_t node);
    static std::optional<std::string> dataOf(plist_t node);

    // Calls `visit` with each key and value of the dictionary node
    // `dictionary`, in the dictionary's order; a key that libplist cannot give
    // comes as a null pointer. Both stay owned by the tree and live only for
    // the call. Does nothing when the node is not a dictionary.
    static void forEachEntry(plist_t dictionary,
                             const std::function<void(const char* key, plist_t value)>& visit);

  private:
    PropertyList(plist_t root, Format format) : root_(root), format_(format) {}

    plist_t root_ = nullptr;
    Format format_ = Format::xml;
};

}  // namespace target
