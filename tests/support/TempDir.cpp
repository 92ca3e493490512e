#include "TempDir.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace testsupport {
namespace {

[[noreturn]] void fail(const std::string& what, const std::string& path) {
    throw std::runtime_error(what + " " + path + ": " + std::strerror(errno));
}

std::string temporaryRoot() {
    const char* tmp = std::getenv("TMPDIR");
    return (tmp != nullptr && *tmp != '\0') ? tmp : "/tmp";
}

}  // namespace

TempDir::TempDir() {
    std::string pattern = temporaryRoot() + "/uninstall-test-XXXXXX";
    if (::mkdtemp(pattern.data()) == nullptr) {
        fail("mkdtemp", pattern);
    }
    path_ = pattern;
    // Readable and searchable by everyone, so that tests can drop to another
    // user inside it.
    (void)::chmod(path_.c_str(), 0755);
}

TempDir::~TempDir() {
    removeAll(path_);
}

void makeDirectories(const std::string& path, mode_t mode) {
    std::size_t at = 1;
    while (at != std::string::npos) {
        at = path.find('/', at + 1);
        const std::string prefix = path.substr(0, at);
        if (::mkdir(prefix.c_str(), mode) != 0 && errno != EEXIST) {
            fail("mkdir", prefix);
        }
    }
}

void writeFile(const std::string& path, const std::string& content, mode_t mode) {
    const int fd =
        ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, mode);
    if (fd < 0) {
        fail("open", path);
    }
    const bool ok =
        ::write(fd, content.data(), content.size()) == static_cast<ssize_t>(content.size());
    ::close(fd);
    if (!ok) {
        fail("write", path);
    }
}

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        fail("read", path);
    }
    std::ostringstream out;
    out << in.rdbuf();
    return out.str();
}

void makeLink(const std::string& target, const std::string& linkPath) {
    if (::symlink(target.c_str(), linkPath.c_str()) != 0) {
        fail("symlink", linkPath);
    }
}

bool exists(const std::string& path) {
    struct stat st {};
    return ::lstat(path.c_str(), &st) == 0;
}

bool isDirectory(const std::string& path) {
    struct stat st {};
    return ::lstat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

bool isLink(const std::string& path) {
    struct stat st {};
    return ::lstat(path.c_str(), &st) == 0 && S_ISLNK(st.st_mode);
}

std::vector<std::string> listNames(const std::string& path) {
    std::vector<std::string> names;
    DIR* dir = ::opendir(path.c_str());
    if (dir == nullptr) {
        fail("opendir", path);
    }
    while (const dirent* entry = ::readdir(dir)) {
        const std::string name = entry->d_name;
        if (name != "." && name != "..") {
            names.push_back(name);
        }
    }
    ::closedir(dir);
    std::sort(names.begin(), names.end());
    return names;
}

std::size_t countEntries(const std::string& path) {
    std::size_t count = 0;
    for (const std::string& name : listNames(path)) {
        ++count;
        if (isDirectory(path + "/" + name)) {
            count += countEntries(path + "/" + name);
        }
    }
    return count;
}

void removeAll(const std::string& path) {
    if (isDirectory(path)) {
        (void)::chmod(path.c_str(), 0755);
        for (const std::string& name : listNames(path)) {
            removeAll(path + "/" + name);
        }
        (void)::rmdir(path.c_str());
    } else {
        (void)::unlink(path.c_str());
    }
}

std::string makeChain(const std::string& top, int depth) {
    std::string path = top;
    makeDirectories(path);
    for (int level = 1; level <= depth; ++level) {
        writeFile(path + "/f", "beside level " + std::to_string(level));
        path += "/d";
        if (::mkdir(path.c_str(), 0755) != 0) {
            fail("mkdir", path);
        }
    }
    return path;
}

}  // namespace testsupport
