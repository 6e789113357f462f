/// @file
/// Makes calls beneath the device channels give what they give only on a machine in trouble.
#ifndef OSX_TESTS_COMMIF_INTERCEPTIONS_H
#define OSX_TESTS_COMMIF_INTERCEPTIONS_H

#include <optional>

namespace test {

/// What intercepted calls return; those without a value do their work.
struct Forced {
    std::optional<unsigned int> msgRecv;
    std::optional<unsigned int> msgSend;
    std::optional<unsigned long> lastNetworkError;
    bool statFails = false;
};

/// Forces results while it lives. One at a time.
class Interception {
public:
    explicit Interception(const Forced& aForced);
    ~Interception();
    Interception(const Interception&) = delete;
    Interception& operator=(const Interception&) = delete;
};

}  // namespace test

#endif
