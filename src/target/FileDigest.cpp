#include "target/FileDigest.h"

#include <fcntl.h>
#include <openssl/evp.h>
#include <unistd.h>

#include <cerrno>
#include <memory>

#include "base/SystemCalls.h"
#include "base/UniqueFd.h"

namespace target {
namespace {

constexpr std::size_t kBlockSize = std::size_t{1024} * 1024;

struct ContextFree {
    void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
};

}  // namespace

FileDigest::FileDigest() : buffer_(kBlockSize) {}

std::optional<Sha256> FileDigest::ofFile(int folderFD,
                                         const std::string& name,
                                         const struct stat& expected) {
    const base::UniqueFd fd(sys::openFileAt(folderFD, name.c_str()));
    if (!fd) {
        return std::nullopt;
    }
    struct stat status {};
    if (::fstat(fd.get(), &status) != 0 || !S_ISREG(status.st_mode) ||
        status.st_dev != expected.st_dev || status.st_ino != expected.st_ino) {
        return std::nullopt;
    }
#ifdef POSIX_FADV_SEQUENTIAL  // not every system has the hint
    (void)::posix_fadvise(fd.get(), 0, 0, POSIX_FADV_SEQUENTIAL);
#endif
    return ofDescriptor(fd.get());
}

std::optional<Sha256> FileDigest::ofDescriptor(int fd) {
    const std::unique_ptr<EVP_MD_CTX, ContextFree> context(EVP_MD_CTX_new());
    if (!context || EVP_DigestInit_ex(context.get(), EVP_sha256(), nullptr) != 1) {
        return std::nullopt;
    }
    for (;;) {
        const ssize_t n = sys::read(fd, buffer_.data(), buffer_.size());
        if (n < 0) {
            return std::nullopt;
        }
        if (n == 0) {
            break;
        }
        if (EVP_DigestUpdate(context.get(), buffer_.data(), static_cast<std::size_t>(n)) != 1) {
            return std::nullopt;
        }
    }
    Sha256 digest{};
    unsigned int length = 0;
    if (EVP_DigestFinal_ex(context.get(), digest.data(), &length) != 1 || length != digest.size()) {
        return std::nullopt;
    }
    return digest;
}

}  // namespace target
