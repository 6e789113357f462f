/// @file
/// Keeps the sentences in a file.
#ifndef EXAMPLES_GATEWAY_RECORDER_H
#define EXAMPLES_GATEWAY_RECORDER_H

#include <string>

namespace gateway {

class Recorder {
public:
    /// @param aFileName what to append to; empty to keep nothing.
    explicit Recorder(const std::string& aFileName);
    ~Recorder();

    Recorder(const Recorder&) = delete;
    Recorder& operator=(const Recorder&) = delete;

    /// @param aLine without its line end.
    void write(const std::string& aLine);

private:
    int mDescriptor = -1;
};

}  // namespace gateway

#endif
