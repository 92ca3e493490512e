#pragma once

#include <gtest/gtest.h>
#include <plist/plist.h>
#include <unistd.h>

#include <string>

#include "TempDir.h"
#include "platform/InstalledAppVerifier.h"
#include "platform/linux/BundleSeal.h"
#include "target/PropertyList.h"

namespace appbundle {

inline constexpr const char* kIdentifier = "io.tavio.Tavio";

inline std::string infoPlist(const std::string& entries) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">\n<dict>\n" +
           entries + "</dict>\n</plist>\n";
}

inline std::string keyString(const std::string& key, const std::string& value) {
    return "<key>" + key + "</key><string>" + value + "</string>\n";
}

// A temporary folder with "Applications/Tavio.app" made like a real app: an
// executable, resources, and a framework whose links all stay inside.
class AppBundleTest : public ::testing::Test {
  protected:
    std::string applications() const { return temp_ / "Applications"; }
    std::string bundle() const { return applications() + "/Tavio.app"; }
    std::string contents() const { return bundle() + "/Contents"; }
    std::string at(const std::string& relative) const { return contents() + "/" + relative; }
    std::string sealPath() const { return at("_CodeSignature/CodeResources"); }

    void makeBundle(const std::string& info = infoPlist(keyString("CFBundleIdentifier",
                                                                  kIdentifier) +
                                                        keyString("CFBundleExecutable", "Tavio"))) {
        using testsupport::makeDirectories;
        using testsupport::writeFile;
        makeDirectories(at("MacOS"));
        makeDirectories(at("Resources/en.lproj"));
        makeDirectories(at("Frameworks/TavioCore.framework/Versions/A"));
        writeFile(at("Info.plist"), info);
        writeFile(at("MacOS/Tavio"), "#!/bin/sh\necho Tavio\n", 0755);
        writeFile(at("Resources/en.lproj/Localizable.strings"), "\"Open\" = \"Open\";\n");
        writeFile(at("Resources/Tavio.icns"), std::string(100000, '\x42'));
        writeFile(at("Frameworks/TavioCore.framework/Versions/A/TavioCore"), "core library");
        testsupport::makeLink("A", at("Frameworks/TavioCore.framework/Versions/Current"));
        testsupport::makeLink("Versions/Current/TavioCore",
                              at("Frameworks/TavioCore.framework/TavioCore"));
    }

    void seal(const std::string& identifier = kIdentifier,
              target::PropertyList::Format format = target::PropertyList::Format::binary) {
        const auto error = platform::writeSeal(bundle(), identifier, format);
        ASSERT_FALSE(error) << error->message;
    }

    void makeSealedBundle() {
        makeBundle();
        seal();
    }

    std::optional<target::AppVerificationProblem> verify(
        const std::string& path,
        const std::string& identifier = kIdentifier) const {
        return platform::InstalledAppVerifier().verify(path, identifier);
    }
    std::optional<target::AppVerificationProblem> verify() const { return verify(bundle()); }

    // Adds an entry to the seal as if it had been sealed that way (for
    // entries the sealing tool itself would refuse to vouch for).
    void addToSeal(const std::string& relative, const std::string& key, plist_t value) const {
        const std::string bytes = testsupport::readFile(sealPath());
        auto list = target::PropertyList::parse(bytes);
        ASSERT_TRUE(list);
        plist_t entry = plist_new_dict();
        plist_dict_set_item(entry, key.c_str(), value);
        plist_dict_set_item(plist_dict_get_item(list->root(), "files2"), relative.c_str(), entry);
        testsupport::writeFile(sealPath(), *list->serialized());
    }

    testsupport::TempDir temp_;
};

}  // namespace appbundle
