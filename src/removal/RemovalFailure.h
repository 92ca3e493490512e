#pragma once

#include <string>

#include "removal/RemovalReason.h"

namespace removal {

// One problem met while probing or removing an item: the absolute path where
// it happened (never shortened for display) and why.
struct RemovalFailure {
    std::string path;
    RemovalReason reason;

    bool operator==(const RemovalFailure&) const = default;
};

}  // namespace removal
