// A tiny program that prints what the uninstaller's once-per-process target
// values come out as. The tests copy it into bundle layouts with different
// Info.plist files and run it, because a test process can compute them only
// once.
#include <iostream>

#include "target/Paths.h"
#include "target/UninstallContext.h"

int main() {
    using target::UninstallContext;
    const UninstallContext context = UninstallContext::current();
    std::cout << "bundleIdentifier=" << UninstallContext::productBundleIdentifier() << "\n"
              << "appName=" << UninstallContext::appName() << "\n"
              << "contextBundleIdentifier=" << context.bundleIdentifier << "\n";
    for (const std::string& folder : context.applicationDirectories) {
        std::cout << "looksFor="
                  << target::appendingPathComponent(folder, UninstallContext::appName()) << "\n";
    }
    return 0;
}
