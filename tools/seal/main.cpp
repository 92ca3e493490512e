// tavio-seal: seals an app bundle for an identifier on Linux, the way an
// ad-hoc code signature does on macOS, so that the uninstaller accepts it as
// that product. Used by packagers, the tests and the demo.
//
//   tavio-seal [--xml] <bundle> <identifier>
#include <cstdio>
#include <cstring>
#include <string>

#include "platform/linux/BundleSeal.h"

namespace {

int usage() {
    std::fprintf(stderr, "usage: tavio-seal [--xml] <bundle> <identifier>\n");
    return 2;
}

}  // namespace

int main(int argc, char** argv) {
    auto format = target::PropertyList::Format::binary;
    int first = 1;
    if (argc > 1 && std::strcmp(argv[1], "--xml") == 0) {
        format = target::PropertyList::Format::xml;
        first = 2;
    }
    if (argc - first != 2 || argv[first][0] == '\0' || argv[first + 1][0] == '\0') {
        return usage();
    }
    const std::string bundle = argv[first];
    const std::string identifier = argv[first + 1];
    if (const auto error = platform::writeSeal(bundle, identifier, format)) {
        std::fprintf(stderr, "tavio-seal: %s\n", error->message.c_str());
        return 1;
    }
    return 0;
}
