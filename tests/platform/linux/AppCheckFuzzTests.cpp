// Corpus replay into the app check: mutated Info.plist files and mutated
// seals in a real bundle. The check must never crash or hang, must give the
// problem that the mutated Info.plist calls for, and must never accept a
// seal that does not say what the real one says.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <map>

#include "AppBundleFixture.h"
#include "PlistMutator.h"

namespace {

using Problem = target::AppVerificationProblem;

constexpr int kInfoCases = 3000;
constexpr int kSealCases = 3000;

// The entries of a seal's files2: path, then "hash2:" or "symlink:" and the value.
std::map<std::string, std::string> listedFiles(const target::PropertyList& seal) {
    std::map<std::string, std::string> listed;
    const plist_t files = plist_dict_get_item(seal.root(), "files2");
    plist_dict_iter iterator = nullptr;
    plist_dict_new_iter(files, &iterator);
    for (;;) {
        char* key = nullptr;
        plist_t value = nullptr;
        plist_dict_next_item(files, iterator, &key, &value);
        if (value == nullptr) {
            std::free(key);
            break;
        }
        const auto digest = target::PropertyList::dataOf(plist_dict_get_item(value, "hash2"));
        const auto link = target::PropertyList::stringOf(plist_dict_get_item(value, "symlink"));
        listed[key] = digest ? "hash2:" + *digest : "symlink:" + link.value_or("");
        std::free(key);
    }
    std::free(iterator);
    return listed;
}

class AppCheckFuzzTest : public appbundle::AppBundleTest {
  protected:
    // Unlinks before writing: ext4 flushes a file truncated and rewritten in
    // place to disk at close, which would make each case wait for the disk.
    static void replaceFile(const std::string& path, const std::string& bytes) {
        (void)::unlink(path.c_str());
        testsupport::writeFile(path, bytes);
    }

    // What the layout checks must say about an Info.plist with these bytes,
    // in a bundle whose seal was made for other bytes.
    std::optional<Problem> expectedProblem(const std::string& bytes, const std::string& original) {
        const auto info = target::PropertyList::parse(bytes);
        if (!info || !info->isDictionary()) {
            return Problem::notAnAppBundle();
        }
        const auto identifier = info->stringValue("CFBundleIdentifier");
        if (!identifier) {
            return Problem::missingIdentifier();
        }
        if (*identifier != appbundle::kIdentifier) {
            return Problem::identifierMismatch(*identifier);
        }
        const auto executable = info->stringValue("CFBundleExecutable");
        struct stat status {};
        if (!executable || executable->find('/') != std::string::npos || *executable == "." ||
            *executable == ".." || executable->empty() ||
            ::lstat(at("MacOS/" + *executable).c_str(), &status) != 0 || !S_ISREG(status.st_mode)) {
            return Problem::missingExecutable();
        }
        return bytes == original ? std::nullopt : std::optional(Problem::invalidSignature());
    }
};

TEST_F(AppCheckFuzzTest, MutatedInfoPlistsGiveTheProblemTheyCallFor) {
    makeSealedBundle();
    const std::string xml = testsupport::readFile(at("Info.plist"));
    const std::string binary =
        *target::PropertyList::adopt(plist_copy(target::PropertyList::parse(xml)->root()),
                                     target::PropertyList::Format::binary)
             .serialized();
    testplist::PlistMutator mutator(0x1F0);
    for (int index = 0; index < kInfoCases; ++index) {
        const std::string& seed = mutator.below(2) == 0 ? xml : binary;
        const std::string bytes = mutator.mutate(seed, mutator.below(2) == 0 ? binary : xml);
        replaceFile(at("Info.plist"), bytes);
        ASSERT_EQ(verify(), expectedProblem(bytes, xml)) << "case " << index;
    }
}

TEST_F(AppCheckFuzzTest, MutatedSealsAreRefusedUnlessTheySayTheSame) {
    makeBundle();
    seal(appbundle::kIdentifier, target::PropertyList::Format::xml);
    const std::string xml = testsupport::readFile(sealPath());
    seal();
    const std::string binary = testsupport::readFile(sealPath());
    const auto original = target::PropertyList::parse(binary);
    testplist::PlistMutator mutator(0x5EA1);
    int refused = 0;
    for (int index = 0; index < kSealCases; ++index) {
        const std::string& seed = mutator.below(2) == 0 ? xml : binary;
        const std::string bytes = mutator.mutate(seed, mutator.below(2) == 0 ? binary : xml);
        replaceFile(sealPath(), bytes);
        const auto problem = verify();
        if (problem) {
            ASSERT_EQ(problem, Problem::invalidSignature()) << "case " << index;
            ++refused;
            continue;
        }
        // Accepted: then it must name the same files with the same contents.
        const auto accepted = target::PropertyList::parse(bytes);
        ASSERT_TRUE(accepted) << "case " << index;
        EXPECT_EQ(accepted->stringValue("Identifier"), appbundle::kIdentifier) << index;
        EXPECT_EQ(listedFiles(*accepted), listedFiles(*original)) << index;
    }
    EXPECT_GT(refused, kSealCases / 2);
}

}  // namespace
