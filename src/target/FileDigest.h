#pragma once

#include <sys/stat.h>

#include <array>
#include <optional>
#include <string>
#include <vector>

namespace target {

using Sha256 = std::array<unsigned char, 32>;

// SHA-256 of whole files, read in large blocks: verifying an app reads every
// byte of it, so this is where the time goes. Reuse one FileDigest for many
// files to keep its buffer.
class FileDigest {
  public:
    FileDigest();

    // The digest of the regular file `name` inside the open folder
    // `folderFD`, which must still be the object `expected` describes (the
    // same device and inode, found by an earlier lstat): the file is opened
    // read-only with O_NOFOLLOW and O_NONBLOCK, so a link or a FIFO swapped in
    // meanwhile is refused without blocking. Nothing when it cannot be read.
    std::optional<Sha256> ofFile(int folderFD,
                                 const std::string& name,
                                 const struct stat& expected);

    // The digest of an open descriptor's content, read from where it stands.
    std::optional<Sha256> ofDescriptor(int fd);

  private:
    std::vector<unsigned char> buffer_;
};

}  // namespace target
