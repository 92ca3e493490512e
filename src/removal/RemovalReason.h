#pragma once

#include <cstdint>
#include <string>

namespace removal {

// Why an item (or a part of it) could not be probed or removed. Each reason
// has exactly one user-facing sentence, explanation(). Values compare by case
// and payload; the order of Kind is the order of the cases everywhere.
class RemovalReason {
  public:
    enum class Kind {
        other,   // payload: a ready-made sentence
        system,  // payload: the raw errno value
        permissionDenied,
        symbolicLinkInPath,
        notOwnedByCurrentUser,
        crossesVolume,
        changedSinceVerification,
        tooDeep,
        applicationRunning,
        reappeared,
        notADirectory,
        // The look for a running Tavio just before the item failed: nothing
        // proves that Tavio was not running, so the item was not touched.
        runningNotChecked,
        // Below a copy of the app whose removal was cut off: not among what
        // was verified before that removal began, or not as it was then.
        notVerifiedBefore,
        // The note that lets a cut-off removal be finished could not be
        // saved, so the removal was not begun.
        notRecorded,
    };

    static RemovalReason other(std::string text) { return {Kind::other, 0, std::move(text)}; }
    static RemovalReason system(std::int32_t code) { return {Kind::system, code, {}}; }
    static RemovalReason permissionDenied() { return {Kind::permissionDenied}; }
    static RemovalReason symbolicLinkInPath() { return {Kind::symbolicLinkInPath}; }
    static RemovalReason notOwnedByCurrentUser() { return {Kind::notOwnedByCurrentUser}; }
    static RemovalReason crossesVolume() { return {Kind::crossesVolume}; }
    static RemovalReason changedSinceVerification() { return {Kind::changedSinceVerification}; }
    static RemovalReason tooDeep() { return {Kind::tooDeep}; }
    static RemovalReason applicationRunning() { return {Kind::applicationRunning}; }
    static RemovalReason reappeared() { return {Kind::reappeared}; }
    static RemovalReason notADirectory() { return {Kind::notADirectory}; }
    static RemovalReason runningNotChecked() { return {Kind::runningNotChecked}; }
    static RemovalReason notVerifiedBefore() { return {Kind::notVerifiedBefore}; }
    static RemovalReason notRecorded() { return {Kind::notRecorded}; }

    Kind kind() const { return kind_; }
    // The errno of a `system` reason; 0 for every other case.
    std::int32_t code() const { return code_; }
    // The sentence of an `other` reason; empty for every other case.
    const std::string& text() const { return text_; }

    // The sentence shown to the user. Every case but `other` passes through
    // the installed text lookup; `system` looks up the format
    // "System error %d" and fills in the code afterwards.
    std::string explanation() const;

    bool operator==(const RemovalReason&) const = default;

  private:
    RemovalReason(Kind kind, std::int32_t code = 0, std::string text = {})
        : kind_(kind), code_(code), text_(std::move(text)) {}

    Kind kind_;
    std::int32_t code_;
    std::string text_;
};

// The one rule by which an errno value becomes a reason: EPERM and EACCES are
// permission problems, and so is EROFS (a read-only volume is reported as a
// permission problem on purpose); ELOOP is what O_NOFOLLOW gives for a link
// in the last component; everything else keeps its number. Callers that treat
// ENOENT or ENOTDIR as "not there" decide that before calling this.
RemovalReason reasonForErrno(int error);

}  // namespace removal
