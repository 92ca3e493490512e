#include "target/UninstallContext.h"

#include <pwd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <vector>

#include "base/Trap.h"
#include "target/MainBundle.h"
#include "target/Paths.h"
#include "target/RemovalRecords.h"

namespace target {
namespace {

constexpr std::string_view kApplications = "/Applications";

std::string environment(const char* name) {
    const char* value = std::getenv(name);
    return value != nullptr ? std::string(value) : std::string();
}

// The environment's idea of the user, for an id the user database does not
// know (a container or a network account that is not reachable).
UserAccount accountFromEnvironment(uid_t userID) {
    const std::string home = withoutTrailingSlashes(environment("HOME"));
    std::string name = environment("LOGNAME");
    if (name.empty()) {
        name = environment("USER");
    }
    if (name.empty()) {
        name = std::to_string(userID);
    }
    return UserAccount{home.starts_with('/') ? home : std::string(1, '/'), name};
}

}  // namespace

UserAccount UninstallContext::account(uid_t userID) {
    const long suggested = ::sysconf(_SC_GETPW_R_SIZE_MAX);
    std::vector<char> buffer(suggested > 0 ? static_cast<std::size_t>(suggested) : 16384);
    struct passwd entry {};
    struct passwd* found = nullptr;
    int error = 0;
    while ((error = ::getpwuid_r(userID, &entry, buffer.data(), buffer.size(), &found)) == ERANGE &&
           buffer.size() < (1u << 20)) {
        buffer.resize(buffer.size() * 2);
    }
    if (error != 0 || found == nullptr) {
        return accountFromEnvironment(userID);
    }
    if (found->pw_dir == nullptr || found->pw_name == nullptr) {
        base::trap("the user database entry has no home folder or no name");
    }
    return UserAccount{withoutTrailingSlashes(found->pw_dir), found->pw_name};
}

UninstallContext UninstallContext::make(uid_t userID,
                                        const UserAccount& account,
                                        std::string bundleIdentifier) {
    UninstallContext context;
    context.homeDirectory = withoutTrailingSlashes(account.homeDirectory);
    context.userID = userID;
    context.userName = account.userName;
    context.bundleIdentifier = std::move(bundleIdentifier);
    // A home of "/" has the system's folder as its own: one folder, one row.
    context.applicationDirectories = {std::string(kApplications)};
    const std::string own = appendingPathComponent(context.homeDirectory, "Applications");
    if (own != context.applicationDirectories.front()) {
        context.applicationDirectories.push_back(own);
    }
    context.stateDirectory = RemovalRecords::folderFor(context.homeDirectory);
    return context;
}

UninstallContext UninstallContext::current() {
    const uid_t userID = ::getuid();
    return make(userID, account(userID), productBundleIdentifier());
}

const std::string& UninstallContext::productBundleIdentifier() {
    static const std::string value =
        MainBundle::main().targetString(kTargetBundleIdentifierKey, kFallbackBundleIdentifier);
    return value;
}

const std::string& UninstallContext::appName() {
    static const std::string value =
        MainBundle::main().targetString(kTargetAppNameKey, kFallbackAppName);
    return value;
}

}  // namespace target
