#include "Files.h"

#include <fcntl.h>
#include <openssl/evp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>

#include "base/UniqueFd.h"

namespace footprint {
namespace {

using base::UniqueFd;

std::string failure(const std::string& what, const std::string& path, int error) {
    return what + " " + path + ": " + std::strerror(error);
}

// splitmix64: tiny, fast and the same on every machine, which is all a
// fixture needs.
std::uint64_t nextRandom(std::uint64_t& state) {
    std::uint64_t z = (state += 0x9E3779B97F4A7C15ULL);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ULL;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBULL;
    return z ^ (z >> 31);
}

std::uint64_t seedOf(std::string_view seed) {
    std::uint64_t hash = 0xCBF29CE484222325ULL;  // FNV-1a
    for (const char c : seed) {
        hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001B3ULL;
    }
    return hash;
}

}  // namespace

std::string deterministicBytes(std::string_view seed, std::size_t size) {
    std::string bytes(size, '\0');
    std::uint64_t state = seedOf(seed);
    for (std::size_t i = 0; i < size; i += 8) {
        const std::uint64_t value = nextRandom(state);
        std::memcpy(bytes.data() + i, &value, std::min<std::size_t>(8, size - i));
    }
    return bytes;
}

Error makeDirectories(const std::string& path, mode_t mode) {
    std::error_code error;
    std::filesystem::create_directories(path, error);
    if (error) {
        return "cannot create " + path + ": " + error.message();
    }
    if (::chmod(path.c_str(), mode) != 0) {
        return failure("cannot set the mode of", path, errno);
    }
    return std::nullopt;
}

Error writeFile(const std::string& path, std::string_view bytes, mode_t mode) {
    UniqueFd fd(::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, mode));
    if (!fd) {
        return failure("cannot create", path, errno);
    }
    std::size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t n = ::write(fd.get(), bytes.data() + done, bytes.size() - done);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            return failure("cannot write", path, errno);
        }
        done += static_cast<std::size_t>(n);
    }
    if (::fchmod(fd.get(), mode) != 0) {  // the umask must not change what is planted
        return failure("cannot set the mode of", path, errno);
    }
    return std::nullopt;
}

std::optional<std::string> readFile(const std::string& path) {
    UniqueFd fd(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
    struct stat st {};
    if (!fd || ::fstat(fd.get(), &st) != 0 || !S_ISREG(st.st_mode)) {
        return std::nullopt;
    }
    std::string content;
    char buffer[65536];
    for (;;) {
        const ssize_t n = ::read(fd.get(), buffer, sizeof buffer);
        if (n == 0) {
            return content;
        }
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n < 0) {
            return std::nullopt;
        }
        content.append(buffer, static_cast<std::size_t>(n));
    }
}

Error makeLink(const std::string& target, const std::string& path) {
    if (::symlink(target.c_str(), path.c_str()) != 0) {
        return failure("cannot make the link", path, errno);
    }
    return std::nullopt;
}

std::string sha256Hex(std::string_view bytes) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    (void)EVP_Digest(bytes.data(), bytes.size(), digest, &length, EVP_sha256(), nullptr);
    static constexpr char kHex[] = "0123456789abcdef";
    std::string hex;
    for (unsigned int i = 0; i < length; ++i) {
        hex += kHex[digest[i] >> 4];
        hex += kHex[digest[i] & 0xF];
    }
    return hex;
}

}  // namespace footprint
