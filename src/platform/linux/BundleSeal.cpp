#include "platform/linux/BundleSeal.h"

#include <fcntl.h>
#include <plist/plist.h>

#include <map>
#include <utility>

#include "base/SystemCalls.h"
#include "base/UniqueFd.h"
#include "target/BundleWalk.h"
#include "target/FileDigest.h"

namespace platform {

using target::BundleEntries;
using target::BundleEntry;
using target::BundleWalk;
using target::FileDigest;
using target::Sha256;
using target::VisitedEntry;
namespace {

const std::string kContents = "Contents";
const std::string kSealPath = std::string(kSealFolder) + "/" + std::string(kSealFile);

// What the seal says one entry must be: a digest or a link target.
struct Expected {
    std::optional<std::string> digest;
    std::optional<std::string> linkTarget;
};

base::UniqueFd openFolder(int parentFD, const std::string& name) {
    return base::UniqueFd(sys::openFolderAt(parentFD, name.c_str()));
}

std::string asText(const Sha256& digest) {
    return std::string(reinterpret_cast<const char*>(digest.data()), digest.size());
}

// One files2 entry: a dictionary with exactly one of hash2 (32 bytes of
// data) and symlink (a non-empty string).
std::optional<Expected> expectedFrom(plist_t value) {
    if (value == nullptr || plist_get_node_type(value) != PLIST_DICT ||
        plist_dict_get_size(value) != 1) {
        return std::nullopt;
    }
    Expected expected;
    expected.digest = target::PropertyList::dataOf(plist_dict_get_item(value, "hash2"));
    expected.linkTarget = target::PropertyList::stringOf(plist_dict_get_item(value, "symlink"));
    if (expected.digest && expected.digest->size() == Sha256{}.size()) {
        return expected;
    }
    if (expected.linkTarget && !expected.linkTarget->empty()) {
        return expected;
    }
    return std::nullopt;
}

// The listed entries of a seal made for `expectedIdentifier`; nothing when
// the seal is missing, not a regular file, malformed or for another id.
std::optional<std::map<std::string, Expected>> readSeal(int contentsFD,
                                                        const std::string& expectedIdentifier) {
    const base::UniqueFd sealFolder = openFolder(contentsFD, std::string(kSealFolder));
    if (!sealFolder) {
        return std::nullopt;
    }
    auto read = target::PropertyList::readAt(sealFolder.get(), kSealFile);
    const auto* seal = std::get_if<target::PropertyList>(&read);
    if (seal == nullptr || seal->stringValue("Identifier") != expectedIdentifier) {
        return std::nullopt;
    }
    const plist_t files = plist_dict_get_item(seal->root(), "files2");
    if (files == nullptr || plist_get_node_type(files) != PLIST_DICT) {
        return std::nullopt;
    }
    std::map<std::string, Expected> listed;
    bool ok = true;
    target::PropertyList::forEachEntry(files, [&](const char* key, plist_t value) {
        const auto expected = expectedFrom(value);
        ok = ok && key != nullptr && expected && listed.emplace(key, *expected).second;
    });
    return ok ? std::optional(std::move(listed)) : std::nullopt;
}

}  // namespace

bool sealIsValid(int bundleFD, int contentsFD, const std::string& expectedIdentifier) {
    if (!BundleWalk::holdsOnly(bundleFD, kContents)) {
        return false;
    }
    auto listed = readSeal(contentsFD, expectedIdentifier);
    if (!listed) {
        return false;
    }
    FileDigest digest;
    BundleEntries entries;
    const bool matched = BundleWalk::walk(
        contentsFD,
        [&](const VisitedEntry& entry) {
            if (entry.path == kSealPath && entry.type == BundleEntry::Type::file) {
                return true;
            }
            const auto found = listed->find(entry.path);
            if (found == listed->end()) {
                return false;  // added since sealing
            }
            const Expected expected = std::move(found->second);
            listed->erase(found);
            if (entry.type == BundleEntry::Type::link) {
                return expected.linkTarget == entry.linkTarget;
            }
            if (!expected.digest) {
                return false;
            }
            const auto actual = digest.ofFile(entry.folderFD, entry.name, entry.status);
            return actual && asText(*actual) == *expected.digest;
        },
        entries);
    return matched && listed->empty() && BundleWalk::linksStayInside(entries);
}

bool sealIsValid(const std::string& bundlePath, const std::string& expectedIdentifier) {
    const base::UniqueFd bundle(sys::open(bundlePath.c_str(), sys::kFolderFlags));
    if (!bundle) {
        return false;
    }
    const base::UniqueFd contents = openFolder(bundle.get(), kContents);
    return contents && sealIsValid(bundle.get(), contents.get(), expectedIdentifier);
}

}  // namespace platform
