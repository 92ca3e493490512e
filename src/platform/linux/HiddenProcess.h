#pragma once

#include <set>
#include <string>
#include <vector>

#include "platform/linux/BundleDeclarations.h"
#include "platform/linux/ProcessInstance.h"

namespace platform {

// Telling a copy of the product from everything else among the processes
// whose executable the kernel hides (ProcessInstance::executableHidden()).
// What such a process says of itself is what it was started by: its command
// name and the first word of its command line. A copy of Tavio is started by
// the path of its executable or by a link to it, so the name of that file is
// one that a Tavio bundle gives its executable; an agent or any other program
// is started by a name of its own. The evidence is weighed in one direction
// only: whatever might be Tavio is taken for Tavio, and a process is "not
// Tavio" only when what can be read rules Tavio out.

// The file names a copy of the product may have been started by.
struct ProductExecutableNames {
    std::set<std::string> names;
    // False when a folder that may hold a copy of the product (an
    // application folder, or the MacOS folder of a bundle in one) exists but
    // could not be listed: a name there may be missing from `names`.
    bool complete = true;
};

// `knownNames` (the conventional name and the executables of the copies
// already seen running), and every name in the Contents/MacOS folder of each
// "*.app" bundle in the application folders that declares the product or may
// (Declares::unknown): a bundle names its executable there, and an Info.plist
// that cannot be read names nothing for certain.
ProductExecutableNames productExecutableNames(
    const std::vector<std::string>& applicationDirectories,
    std::set<std::string> knownNames,
    BundleDeclarations& bundles);

enum class Verdict { product, other, unknown };

// A process with a hidden executable is the product when the path it was
// started by lies inside a bundle that declares the product, or when the
// name it was started by (its command name, of which the kernel keeps 15
// bytes, or the last component of its first argument) is one of `names`.
// Unknown when neither matched but a bundle on its path, or a folder behind
// `names`, could not be read, or its path is relative and passes through a
// bundle (where it leads depends on its working folder, which is hidden
// too). Otherwise it is something else.
Verdict judgeHiddenProcess(const ProcessInstance& process,
                           const ProductExecutableNames& names,
                           BundleDeclarations& bundles);

}  // namespace platform
