// Writing the bundle seal (see BundleSeal.h); the sealing tool and the tests
// call this.
#include <fcntl.h>
#include <plist/plist.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "base/SystemCalls.h"
#include "base/UniqueFd.h"
#include "platform/linux/BundleSeal.h"
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
const std::string kTemporarySeal = std::string(kSealFile) + ".new";

SealError systemError(const std::string& what, const std::string& path) {
    return SealError{what + " " + path + ": " + std::strerror(errno)};
}

// The files2 dictionary of the bundle, or nothing when it holds something a
// seal cannot vouch for.
std::optional<plist_t> listContents(int contentsFD) {
    FileDigest digest;
    BundleEntries entries;
    plist_t files = plist_new_dict();
    const bool walked = BundleWalk::walk(
        contentsFD,
        [&](const VisitedEntry& entry) {
            if (entry.path == kSealPath) {
                return true;  // replaced below
            }
            plist_t item = plist_new_dict();
            if (entry.type == BundleEntry::Type::link) {
                plist_dict_set_item(item, "symlink", plist_new_string(entry.linkTarget.c_str()));
            } else {
                const auto sha = digest.ofFile(entry.folderFD, entry.name, entry.status);
                if (!sha) {
                    plist_free(item);
                    return false;
                }
                plist_dict_set_item(
                    item, "hash2",
                    plist_new_data(reinterpret_cast<const char*>(sha->data()), sha->size()));
            }
            plist_dict_set_item(files, entry.path.c_str(), item);
            return true;
        },
        entries);
    if (!walked || !BundleWalk::linksStayInside(entries)) {
        plist_free(files);
        return std::nullopt;
    }
    return files;
}

// Writes the seal beside the old one, then renames it into place.
std::optional<SealError> replaceSeal(int sealFolderFD,
                                     const std::string& bytes,
                                     const std::string& sealFolderPath) {
    const base::UniqueFd file(sys::createFileAt(sealFolderFD, kTemporarySeal.c_str(), 0644));
    if (!file) {
        return systemError("cannot create", sealFolderPath + "/" + kTemporarySeal);
    }
    if (!sys::writeAll(file.get(), bytes) || ::fsync(file.get()) != 0) {
        const SealError error = systemError("cannot write", sealFolderPath + "/" + kTemporarySeal);
        (void)sys::unlinkAt(sealFolderFD, kTemporarySeal.c_str());
        return error;
    }
    if (::renameat(sealFolderFD, kTemporarySeal.c_str(), sealFolderFD,
                   std::string(kSealFile).c_str()) != 0) {
        const SealError error = systemError("cannot rename the seal into", sealFolderPath);
        (void)sys::unlinkAt(sealFolderFD, kTemporarySeal.c_str());
        return error;
    }
    (void)::fsync(sealFolderFD);
    return std::nullopt;
}

// Opens (creating it if needed) the seal's folder, without a half-written
// seal left by an interrupted run.
std::variant<base::UniqueFd, SealError> openSealFolder(int contentsFD, const std::string& path) {
    const std::string name(kSealFolder);
    if (::mkdirat(contentsFD, name.c_str(), 0755) != 0 && errno != EEXIST) {
        return systemError("cannot create", path);
    }
    base::UniqueFd folder(sys::openFolderAt(contentsFD, name.c_str()));
    if (!folder) {
        return systemError("cannot open the folder", path);
    }
    if (sys::unlinkAt(folder.get(), kTemporarySeal.c_str()) != 0 && errno != ENOENT) {
        return systemError("cannot remove", path + "/" + kTemporarySeal);
    }
    return folder;
}

// The seal of `contentsFD`'s files as a property list in `format`.
std::variant<std::string, SealError> sealBytes(int contentsFD,
                                               const std::string& bundlePath,
                                               const std::string& identifier,
                                               target::PropertyList::Format format) {
    const auto files = listContents(contentsFD);
    if (!files) {
        return SealError{"cannot seal " + bundlePath +
                         ": it holds a FIFO, socket or device, an unreadable entry, a folder "
                         "nested too deeply, or a link that is absolute or leaves the bundle"};
    }
    plist_t root = plist_new_dict();
    plist_dict_set_item(root, "Identifier", plist_new_string(identifier.c_str()));
    plist_dict_set_item(root, "files2", *files);
    auto bytes = target::PropertyList::adopt(root, format).serialized();
    if (!bytes) {
        return SealError{"cannot write the seal as a property list"};
    }
    return std::move(*bytes);
}

}  // namespace

std::optional<SealError> writeSeal(const std::string& bundlePath,
                                   const std::string& identifier,
                                   target::PropertyList::Format format) {
    const base::UniqueFd bundle(sys::open(bundlePath.c_str(), sys::kFolderFlags));
    if (!bundle) {
        return systemError("cannot open the bundle", bundlePath);
    }
    if (!BundleWalk::holdsOnly(bundle.get(), kContents)) {
        return SealError{"the top level of " + bundlePath + " must hold nothing but Contents"};
    }
    const base::UniqueFd contents(sys::openFolderAt(bundle.get(), kContents.c_str()));
    if (!contents) {
        return systemError("cannot open the folder", bundlePath + "/Contents");
    }
    const std::string sealFolderPath = bundlePath + "/Contents/" + std::string(kSealFolder);
    auto sealFolder = openSealFolder(contents.get(), sealFolderPath);
    if (auto* error = std::get_if<SealError>(&sealFolder)) {
        return *error;
    }
    const auto bytes = sealBytes(contents.get(), bundlePath, identifier, format);
    if (const auto* error = std::get_if<SealError>(&bytes)) {
        return *error;
    }
    if (auto error = replaceSeal(std::get<base::UniqueFd>(sealFolder).get(),
                                 std::get<std::string>(bytes), sealFolderPath)) {
        return error;
    }
    // A name that is not valid UTF-8 cannot be stored faithfully in a property
    // list; rather than leave a seal that can never pass, say so now.
    if (!sealIsValid(bundle.get(), contents.get(), identifier)) {
        return SealError{"the seal written for " + bundlePath +
                         " does not verify; are all file names valid UTF-8?"};
    }
    return std::nullopt;
}

}  // namespace platform
