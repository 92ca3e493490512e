#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "target/PropertyList.h"

namespace platform {

// The seal that stands in for a code signature on Linux: a property list at
// "Contents/_CodeSignature/CodeResources" with the bundle identifier it was
// made for ("Identifier") and, under "files2", every regular file and
// symbolic link below "Contents" (the seal itself excepted) by its
// "/"-separated path relative to "Contents": {"hash2": SHA-256 of the bytes}
// for a file, {"symlink": the link's target} for a link.
//
// A seal is valid when it is a regular file that parses; its identifier
// equals the expected one exactly; the files and links below "Contents" are
// exactly those listed, each of the same type with the same digest or
// target; every link target is relative and stays inside the bundle; there
// is no FIFO, socket or device anywhere; and the bundle's top level holds
// nothing but "Contents". Like an ad-hoc signature checked against an
// identifier-only requirement, it proves integrity, not authorship.

inline constexpr std::string_view kSealFolder = "_CodeSignature";
inline constexpr std::string_view kSealFile = "CodeResources";

// Why a seal could not be written, in words for the person packaging.
struct SealError {
    std::string message;
};

// Seals the bundle at `bundlePath` for `identifier`, replacing any earlier
// seal (the new one is written beside it and renamed into place). A bundle
// that could never pass the check (a FIFO inside, a link leaving it,
// something beside "Contents") is refused. Nothing on success.
std::optional<SealError> writeSeal(
    const std::string& bundlePath,
    const std::string& identifier,
    target::PropertyList::Format format = target::PropertyList::Format::binary);

// Checks the seal of an opened bundle: `bundleFD` is the bundle folder and
// `contentsFD` its "Contents" folder; neither is closed. Reads everything
// relative to them, follows no link, opens nothing for writing.
bool sealIsValid(int bundleFD, int contentsFD, const std::string& expectedIdentifier);

// The same for a bundle given by path (the bundle itself must not be a link).
bool sealIsValid(const std::string& bundlePath, const std::string& expectedIdentifier);

}  // namespace platform
