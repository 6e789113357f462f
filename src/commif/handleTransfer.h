/// @file
/// Whole transfers on the handle of a device, within a time and beside other readers and writers.
/// Internal.
#ifndef OSX_COMMIF_HANDLETRANSFER_H
#define OSX_COMMIF_HANDLETRANSFER_H

#include <sys/types.h>

#include <cstddef>

class ACE_Time_Value;

namespace osx {

/// Reads exactly `aLength` bytes. With a time-out the handle does not block meanwhile.
/// @param aTimeout how long to wait for each next piece, whoever else takes what came; null waits
///        without limit.
/// @param[out] aReceived how many bytes are in the buffer, on failure too.
/// @return `aLength`; 0 at the end of the data; -1 on failure: ETIME when the time elapsed, EINTR
///         when a signal came while waiting.
ssize_t readWhole(int aHandle, char* aBuffer, std::size_t aLength, const ACE_Time_Value* aTimeout,
                  std::size_t& aReceived);

/// Writes all bytes, and waits where another thread's read with a time-out keeps the handle from
/// blocking.
/// @return `aLength`; what `write` gave when it failed: EINTR only before the first byte, EAGAIN
///         only on a handle that the application made non-blocking.
ssize_t writeWhole(int aHandle, const char* aBuffer, std::size_t aLength);

}  // namespace osx

#endif
