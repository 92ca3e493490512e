#include "target/RemovalRecord.h"

#include <plist/plist.h>

#include "target/Paths.h"
#include "target/PropertyList.h"

namespace target {
namespace {

std::optional<std::uint64_t> numberOf(plist_t node) {
    if (node == nullptr || plist_get_node_type(node) != PLIST_UINT) {
        return std::nullopt;
    }
    std::uint64_t value = 0;
    plist_get_uint_val(node, &value);
    return value;
}

// The number when `T` holds it unchanged: a value too wide for the field is
// not cut down to one that may happen to match a folder's.
template <typename T>
std::optional<T> numberAs(plist_t node) {
    const auto value = numberOf(node);
    if (!value || static_cast<std::uint64_t>(static_cast<T>(*value)) != *value) {
        return std::nullopt;
    }
    return static_cast<T>(*value);
}

// The name must be one path component, as every bundle name is.
bool isSingleName(const std::string& name) {
    return !name.empty() && name != "." && name != ".." &&
           name.find_first_of(std::string_view("/\0", 2)) == std::string::npos;
}

}  // namespace

std::string RemovalRecord::path() const {
    return appendingPathComponent(anchor, name);
}

std::optional<std::string> RemovalRecord::serialized() const {
    plist_t root = plist_new_dict();
    plist_dict_set_item(root, "Identifier", plist_new_string(identifier.c_str()));
    plist_dict_set_item(root, "Anchor", plist_new_string(anchor.c_str()));
    plist_dict_set_item(root, "Name", plist_new_string(name.c_str()));
    plist_dict_set_item(root, "Device", plist_new_uint(identity.device));
    plist_dict_set_item(root, "Inode", plist_new_uint(identity.inode));
    plist_dict_set_item(root, "Owner", plist_new_uint(owner));
    plist_dict_set_item(root, "Entries", manifest.toNode());
    return PropertyList::adopt(root, PropertyList::Format::xml).serialized();
}

std::optional<RemovalRecord> RemovalRecord::parse(std::string_view bytes) {
    // Records are only ever written as XML: anything else is not one of ours.
    const auto list = PropertyList::parse(bytes);
    if (!list || list->format() != PropertyList::Format::xml || !list->isDictionary()) {
        return std::nullopt;
    }
    const plist_t root = list->root();
    const auto identifier = list->stringValue("Identifier");
    const auto anchor = list->stringValue("Anchor");
    const auto name = list->stringValue("Name");
    const auto device = numberAs<dev_t>(plist_dict_get_item(root, "Device"));
    const auto inode = numberOf(plist_dict_get_item(root, "Inode"));
    const auto owner = numberAs<uid_t>(plist_dict_get_item(root, "Owner"));
    auto manifest = BundleManifest::fromNode(plist_dict_get_item(root, "Entries"));
    if (!identifier || identifier->empty() || !anchor || !anchor->starts_with('/') || !name ||
        !isSingleName(*name) || !device || !inode || !owner || !manifest) {
        return std::nullopt;
    }
    const removal::FileIdentity identity{*device, *inode};
    return RemovalRecord{*identifier, *anchor, *name, identity, *owner, std::move(*manifest)};
}

}  // namespace target
