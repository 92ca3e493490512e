#include "target/BundleManifest.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdint>

#include "target/BundleWalk.h"
#include "target/FileDigest.h"

namespace target {
namespace {

using Kind = BundleManifest::Entry::Kind;

constexpr const char* kFolderKey = "folder";
constexpr const char* kDigestKey = "hash2";
constexpr const char* kLinkKey = "symlink";

std::string asText(const Sha256& digest) {
    return std::string(reinterpret_cast<const char*>(digest.data()), digest.size());
}

// The target of the link `name` in `folderFD`, exactly as stored.
std::optional<std::string> linkTargetOf(int folderFD, const std::string& name) {
    std::string target(4096, '\0');
    const ssize_t length = ::readlinkat(folderFD, name.c_str(), target.data(), target.size());
    if (length < 0 || static_cast<std::size_t>(length) >= target.size()) {
        return std::nullopt;
    }
    target.resize(static_cast<std::size_t>(length));
    return target;
}

// One entry of a stored manifest: a dictionary with exactly one key.
std::optional<BundleManifest::Entry> entryFrom(plist_t value) {
    if (value == nullptr || plist_get_node_type(value) != PLIST_DICT ||
        plist_dict_get_size(value) != 1) {
        return std::nullopt;
    }
    // A folder is written as "folder" = true; any other value is no entry of
    // ours.
    if (const plist_t folder = plist_dict_get_item(value, kFolderKey)) {
        std::uint8_t set = 0;
        if (plist_get_node_type(folder) == PLIST_BOOLEAN) {
            plist_get_bool_val(folder, &set);
        }
        return set != 0 ? std::optional(BundleManifest::Entry{Kind::folder, {}, {}}) : std::nullopt;
    }
    const auto digest = PropertyList::dataOf(plist_dict_get_item(value, kDigestKey));
    if (digest && digest->size() == Sha256{}.size()) {
        return BundleManifest::Entry{Kind::file, *digest, {}};
    }
    const auto link = PropertyList::stringOf(plist_dict_get_item(value, kLinkKey));
    if (link && !link->empty()) {
        return BundleManifest::Entry{Kind::link, {}, *link};
    }
    return std::nullopt;
}

plist_t nodeOf(const BundleManifest::Entry& entry) {
    plist_t node = plist_new_dict();
    switch (entry.kind) {
        case Kind::folder:
            plist_dict_set_item(node, kFolderKey, plist_new_bool(1));
            break;
        case Kind::file:
            plist_dict_set_item(node, kDigestKey,
                                plist_new_data(entry.digest.data(), entry.digest.size()));
            break;
        case Kind::link:
            plist_dict_set_item(node, kLinkKey, plist_new_string(entry.linkTarget.c_str()));
            break;
    }
    return node;
}

}  // namespace

std::optional<BundleManifest> BundleManifest::of(int bundleFD) {
    BundleManifest manifest;
    FileDigest digest;
    BundleEntries walked;
    const bool read = BundleWalk::walk(
        bundleFD,
        [&](const VisitedEntry& entry) {
            if (entry.type == BundleEntry::Type::link) {
                manifest.entries[entry.path] = Entry{Kind::link, {}, entry.linkTarget};
                return true;
            }
            const auto sha = digest.ofFile(entry.folderFD, entry.name, entry.status);
            if (sha) {
                manifest.entries[entry.path] = Entry{Kind::file, asText(*sha), {}};
            }
            return sha.has_value();
        },
        walked);
    if (!read) {
        return std::nullopt;
    }
    for (const auto& [path, entry] : walked) {
        if (entry.type == BundleEntry::Type::folder) {
            manifest.entries[path] = Entry{Kind::folder, {}, {}};
        }
    }
    return manifest;
}

bool BundleManifest::stillHolds(const std::string& path,
                                int folderFD,
                                const std::string& name,
                                const struct stat& status) const {
    const auto listed = entries.find(path);
    if (listed == entries.end()) {
        return false;
    }
    const Entry& entry = listed->second;
    switch (entry.kind) {
        case Kind::folder:
            return S_ISDIR(status.st_mode);
        case Kind::link:
            return S_ISLNK(status.st_mode) && linkTargetOf(folderFD, name) == entry.linkTarget;
        case Kind::file:
            break;
    }
    if (!S_ISREG(status.st_mode)) {
        return false;
    }
    const auto sha = FileDigest().ofFile(folderFD, name, status);
    return sha && asText(*sha) == entry.digest;
}

plist_t BundleManifest::toNode() const {
    plist_t node = plist_new_dict();
    for (const auto& [path, entry] : entries) {
        plist_dict_set_item(node, path.c_str(), nodeOf(entry));
    }
    return node;
}

std::optional<BundleManifest> BundleManifest::fromNode(plist_t node) {
    if (node == nullptr || plist_get_node_type(node) != PLIST_DICT) {
        return std::nullopt;
    }
    BundleManifest manifest;
    bool ok = true;
    PropertyList::forEachEntry(node, [&](const char* key, plist_t value) {
        const auto entry = entryFrom(value);
        ok = ok && key != nullptr && *key != '\0' && entry &&
             manifest.entries.emplace(key, *entry).second;
    });
    return ok ? std::optional(std::move(manifest)) : std::nullopt;
}

}  // namespace target
