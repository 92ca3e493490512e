#pragma once

#include <openssl/evp.h>
#include <plist/plist.h>

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>

#include "target/BundleManifest.h"
#include "target/RemovalRecord.h"

namespace testrecords {

// The SHA-256 of `bytes` as a manifest keeps it: the 32 raw bytes. Computed
// by OpenSSL directly, not by the code under test.
inline std::string sha256(const std::string& bytes) {
    unsigned char digest[EVP_MAX_MD_SIZE] = {};
    unsigned int length = 0;
    if (EVP_Digest(bytes.data(), bytes.size(), digest, &length, EVP_sha256(), nullptr) != 1) {
        throw std::runtime_error("EVP_Digest failed");
    }
    return std::string(reinterpret_cast<const char*>(digest), length);
}

inline target::BundleManifest::Entry folderEntry() {
    return {target::BundleManifest::Entry::Kind::folder, {}, {}};
}

inline target::BundleManifest::Entry fileEntry(const std::string& content) {
    return {target::BundleManifest::Entry::Kind::file, sha256(content), {}};
}

inline target::BundleManifest::Entry linkEntry(const std::string& linkTarget) {
    return {target::BundleManifest::Entry::Kind::link, {}, linkTarget};
}

// A manifest with one entry of each kind, nested as in a real bundle.
inline target::BundleManifest sampleManifest() {
    target::BundleManifest manifest;
    manifest.entries["Contents"] = folderEntry();
    manifest.entries["Contents/Info.plist"] = fileEntry("info");
    manifest.entries["Contents/MacOS"] = folderEntry();
    manifest.entries["Contents/MacOS/Tavio"] = fileEntry("program");
    manifest.entries["Contents/Frameworks/Current"] = linkEntry("A");
    return manifest;
}

// A record whose numbers are all distinct and wider than 32 bits where the
// field allows it, so that a field read from the wrong key or cut short
// shows.
inline target::RemovalRecord sampleRecord(const std::string& anchor = "/Applications",
                                          const std::string& name = "Tavio.app") {
    return target::RemovalRecord{
        "io.tavio.Tavio",
        anchor,
        name,
        removal::FileIdentity{static_cast<dev_t>(0x10302), std::uint64_t{0x123456789AB}},
        501,
        sampleManifest()};
}

// A libplist node freed when it goes out of scope.
using Node = std::unique_ptr<void, void (*)(plist_t)>;

inline Node owned(plist_t node) {
    return Node(node, plist_free);
}

// The XML text of a libplist tree.
inline std::string xmlOf(plist_t node) {
    char* text = nullptr;
    std::uint32_t length = 0;
    plist_to_xml(node, &text, &length);
    if (text == nullptr) {
        throw std::runtime_error("plist_to_xml failed");
    }
    std::string out(text, length);
    plist_to_xml_free(text);
    return out;
}

}  // namespace testrecords
