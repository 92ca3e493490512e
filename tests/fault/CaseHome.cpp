#include "CaseHome.h"

#include <grp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <stdexcept>
#include <vector>

#include "TempDir.h"

namespace faulttest {

uid_t caseUser() {
    static const uid_t user = ::geteuid() == 0 ? 65534 : ::getuid();
    return user;
}

void becomeCaseUser() {
    if (::geteuid() != 0) {
        return;
    }
    if (::setgroups(0, nullptr) != 0 || ::setresgid(caseUser(), caseUser(), caseUser()) != 0 ||
        ::setresuid(caseUser(), caseUser(), caseUser()) != 0) {
        throw std::runtime_error("cannot become the case's user");
    }
}

const char* stateName(target::ItemState::Kind kind) {
    switch (kind) {
        case target::ItemState::Kind::present:
            return "present";
        case target::ItemState::Kind::absent:
            return "absent";
        case target::ItemState::Kind::skipped:
            return "skipped";
    }
    return "?";
}

void collect(const std::string& path, std::set<std::string>& into) {
    struct stat st {};
    if (::lstat(path.c_str(), &st) != 0) {
        return;
    }
    into.insert(path);
    if (!S_ISDIR(st.st_mode)) {
        return;
    }
    for (const std::string& name : testsupport::listNames(path)) {
        collect(path + "/" + name, into);
    }
}

std::shared_ptr<platform::FilePreferencesAccess> storeFor(const std::string& home) {
    return std::make_shared<platform::FilePreferencesAccess>(
        home,
        std::vector<platform::PreferencesHost>{platform::PreferencesHost::anyHost,
                                               platform::PreferencesHost::currentHost},
        kHostID, caseUser());
}

}  // namespace faulttest
