#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>
#include <vector>

namespace target {

// The target product's identity when the uninstaller's own Info.plist does
// not name it (see UninstallContext::productBundleIdentifier()).
inline constexpr std::string_view kFallbackBundleIdentifier = "io.tavio.Tavio";
inline constexpr std::string_view kFallbackAppName = "Tavio.app";
inline constexpr std::string_view kTargetBundleIdentifierKey = "TavioTargetBundleIdentifier";
inline constexpr std::string_view kTargetAppNameKey = "TavioTargetAppName";

// Whose account a user is: the home folder (absolute, no trailing slash, "/"
// for the root folder) and the short login name.
struct UserAccount {
    std::string homeDirectory;
    std::string userName;

    bool operator==(const UserAccount&) const = default;
};

// For whom the uninstall runs and what it removes, settled once at start and
// then passed by value, so that every part speaks of the same user and the
// same product. All paths are absolute and written without a trailing slash
// (see Paths.h).
struct UninstallContext {
    std::string homeDirectory;
    uid_t userID = 0;  // the real user id of the process
    std::string userName;
    std::string bundleIdentifier;
    // Where copies of the app are looked for, in search order: "/Applications"
    // and the user's own "~/Applications", each once (a home of "/" has only
    // the first).
    std::vector<std::string> applicationDirectories;
    // The program's own folder for the records that let a removal cut off
    // by a crash be finished (see RemovalRecords.h).
    std::string stateDirectory;

    bool operator==(const UninstallContext&) const = default;

    // The context of the running process: its real user, looked up in the
    // user database (see account()), and productBundleIdentifier(). Cannot
    // fail.
    static UninstallContext current();

    // The context of `userID` with that account and product.
    static UninstallContext make(uid_t userID,
                                 const UserAccount& account,
                                 std::string bundleIdentifier);

    // The user database's entry for `userID`; when there is none, the
    // environment's idea of home and user ($HOME, then $LOGNAME or $USER, as
    // the desktop libraries do; "/" and the numeric id when even those are
    // missing). An entry whose home or name is a null pointer stops the
    // process: the database is broken, not the user's data.
    static UserAccount account(uid_t userID);

    // The target product, named by the Info.plist keys
    // "TavioTargetBundleIdentifier" and "TavioTargetAppName" (a non-empty
    // string each), otherwise "io.tavio.Tavio" and "Tavio.app". Read once, on
    // first use from any thread, and kept for the life of the process.
    // appName() is the bundle's file name, extension included.
    static const std::string& productBundleIdentifier();
    static const std::string& appName();
};

}  // namespace target
