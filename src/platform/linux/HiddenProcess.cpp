#include "platform/linux/HiddenProcess.h"

#include <fcntl.h>

#include <cerrno>
#include <optional>

#include "base/SystemCalls.h"
#include "base/UniqueFd.h"
#include "target/Paths.h"

namespace platform {
namespace {

using base::UniqueFd;

// The kernel keeps a command name of at most 15 bytes.
constexpr std::size_t kCommandNameLength = 15;

constexpr std::string_view kBundleExtension = ".app";

bool isBundleName(const std::string& name) {
    return name.size() > kBundleExtension.size() && name.ends_with(kBundleExtension);
}

// The names in the folder at `path` (links on the way followed: nothing is
// changed, only read). An empty list when nothing is there; nothing when the
// folder exists but cannot be listed.
std::optional<std::vector<std::string>> namesAt(const std::string& path) {
    UniqueFd folder(sys::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NONBLOCK));
    if (!folder) {
        if (errno == ENOENT || errno == ENOTDIR || errno == ELOOP) {
            return std::vector<std::string>();
        }
        return std::nullopt;
    }
    return sys::namesIn(folder.get());
}

void addBundle(const std::string& bundle, ProductExecutableNames& found) {
    const std::string name = lastComponent(bundle);
    found.names.insert(name.substr(0, name.size() - kBundleExtension.size()));
    const auto executables = namesAt(bundle + "/Contents/MacOS");
    if (!executables) {
        found.complete = false;
        return;
    }
    found.names.insert(executables->begin(), executables->end());
}

Verdict judgePath(const std::string& path, BundleDeclarations& bundles) {
    const bool relative = !path.starts_with('/');
    Verdict verdict = Verdict::other;
    for (std::string folder = parentOf(path); !folder.empty(); folder = parentOf(folder)) {
        if (!isBundleName(lastComponent(folder))) {
            continue;
        }
        if (relative) {
            return Verdict::unknown;
        }
        const Declares declares = bundles.of(folder);
        if (declares == Declares::yes) {
            return Verdict::product;
        }
        if (declares == Declares::unknown) {
            verdict = Verdict::unknown;
        }
    }
    return verdict;
}

bool startedByName(const ProcessInstance& process, const ProductExecutableNames& names) {
    const std::string started = lastComponent(process.firstArgument);
    for (const std::string& name : names.names) {
        if (name == started || (!process.commandName.empty() &&
                                name.substr(0, kCommandNameLength) == process.commandName)) {
            return true;
        }
    }
    return false;
}

}  // namespace

ProductExecutableNames productExecutableNames(
    const std::vector<std::string>& applicationDirectories,
    std::set<std::string> knownNames,
    BundleDeclarations& bundles) {
    ProductExecutableNames found{.names = std::move(knownNames)};
    for (const std::string& directory : applicationDirectories) {
        const auto entries = namesAt(directory);
        if (!entries) {
            found.complete = false;
            continue;
        }
        for (const std::string& entry : *entries) {
            const std::string bundle = target::appendingPathComponent(directory, entry);
            if (isBundleName(entry) && bundles.of(bundle) != Declares::no) {
                addBundle(bundle, found);
            }
        }
    }
    return found;
}

Verdict judgeHiddenProcess(const ProcessInstance& process,
                           const ProductExecutableNames& names,
                           BundleDeclarations& bundles) {
    bool unsure = !names.complete;
    if (process.firstArgument.find('/') != std::string::npos) {
        const Verdict byPath = judgePath(process.firstArgument, bundles);
        if (byPath == Verdict::product) {
            return Verdict::product;
        }
        unsure = unsure || byPath == Verdict::unknown;
    }
    if (startedByName(process, names)) {
        return Verdict::product;
    }
    return unsure ? Verdict::unknown : Verdict::other;
}

}  // namespace platform
