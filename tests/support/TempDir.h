#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <string>
#include <vector>

namespace testsupport {

// A fresh folder under $TMPDIR (or /tmp) for one test, removed with all its
// content when the test ends. Removal uses `rm -rf`-like code of its own, not
// the code under test, so a broken removal cannot hide its own traces.
class TempDir {
  public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::string& path() const { return path_; }
    std::string operator/(const std::string& relative) const { return path_ + "/" + relative; }

  private:
    std::string path_;
};

// Small, loud helpers for building fixtures: each fails the test (through a
// thrown std::runtime_error, which GoogleTest reports) instead of returning
// errors that a test could forget to check.
void makeDirectories(const std::string& path, mode_t mode = 0755);
void writeFile(const std::string& path, const std::string& content, mode_t mode = 0644);
std::string readFile(const std::string& path);
void makeLink(const std::string& target, const std::string& linkPath);
bool exists(const std::string& path);  // without following a final link
bool isDirectory(const std::string& path);
bool isLink(const std::string& path);
std::vector<std::string> listNames(const std::string& path);  // sorted, without . and ..
std::size_t countEntries(const std::string& path);            // recursive, not following links
void removeAll(const std::string& path);                      // test clean-up only

// Makes a tree of `depth` nested folders named "d" below `top` (top itself is
// depth 0) with a file "f" beside each nested folder. Returns the deepest path.
std::string makeChain(const std::string& top, int depth);

}  // namespace testsupport
