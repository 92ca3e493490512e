#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace testplist {

// Builds binary property lists object by object, so that tests can write
// what no honest writer would: references out of range, containers that hold
// themselves, offsets into the trailer. References are two bytes, offsets
// four, unless a test changes the trailer afterwards.
class BinaryPlistBuilder {
  public:
    // Each returns the new object's index.
    std::uint16_t add(std::string encoded) {
        objects_.push_back(std::move(encoded));
        return static_cast<std::uint16_t>(objects_.size() - 1);
    }
    std::uint16_t string(const std::string& ascii) {
        return add(marker(0x50, ascii.size()) + ascii);
    }
    std::uint16_t data(const std::string& bytes) { return add(marker(0x40, bytes.size()) + bytes); }
    std::uint16_t boolean(bool value) { return add(std::string(1, value ? '\x09' : '\x08')); }
    std::uint16_t array(const std::vector<std::uint16_t>& refs) {
        return add(marker(0xA0, refs.size()) + references(refs));
    }
    std::uint16_t dictionary(const std::vector<std::uint16_t>& keys,
                             const std::vector<std::uint16_t>& values) {
        return add(marker(0xD0, keys.size()) + references(keys) + references(values));
    }

    // The finished list with `top` as its top object.
    std::string build(std::uint64_t top) const {
        std::string out = "bplist00";
        std::vector<std::uint32_t> offsets;
        for (const std::string& object : objects_) {
            offsets.push_back(static_cast<std::uint32_t>(out.size()));
            out += object;
        }
        const std::uint64_t table = out.size();
        for (std::uint32_t offset : offsets) {
            out += bigEndian(offset, 4);
        }
        out += std::string(6, '\0');
        out += '\x04';  // offset size
        out += '\x02';  // reference size
        out += bigEndian(objects_.size(), 8) + bigEndian(top, 8) + bigEndian(table, 8);
        return out;
    }

    static std::string bigEndian(std::uint64_t value, int size) {
        std::string out(static_cast<std::size_t>(size), '\0');
        for (int i = size - 1; i >= 0; --i) {
            out[static_cast<std::size_t>(i)] = static_cast<char>(value & 0xFF);
            value >>= 8;
        }
        return out;
    }

  private:
    static std::string marker(unsigned type, std::size_t count) {
        if (count < 15) {
            return std::string(1, static_cast<char>(type | count));
        }
        return std::string(1, static_cast<char>(type | 0x0F)) + '\x11' + bigEndian(count, 2);
    }
    static std::string references(const std::vector<std::uint16_t>& refs) {
        std::string out;
        for (std::uint16_t ref : refs) {
            out += bigEndian(ref, 2);
        }
        return out;
    }

    std::vector<std::string> objects_;
};

}  // namespace testplist
