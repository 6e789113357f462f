// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/// @file
/// Whole transfers on the handle of a device, with a time-out, while other threads read and write
/// the same device. Internal.
#ifndef OSX_COMMIF_HANDLETRANSFER_H
#define OSX_COMMIF_HANDLETRANSFER_H

#include <sys/types.h>

#include <cstddef>

class ACE_Time_Value;

namespace osx {

/// How a read ended.
enum class ReadEnd {
    kWhole,      ///< All bytes came.
    kEndOfData,  ///< The data ended before, as when the line is hung up.
    kTimedOut,   ///< The time elapsed before.
    kFailed      ///< The system refused (`errno`); EINTR when a signal came while waiting.
};

/// Reads exactly `aLength` bytes. With a time-out the handle does not block meanwhile.
/// @param aTimeout how long to wait for each next piece, whoever else takes what came; null waits
///        without limit.
/// @param[out] aReceived how many bytes are in the buffer, however the read ended.
ReadEnd readWhole(int aHandle, char* aBuffer, std::size_t aLength, const ACE_Time_Value* aTimeout,
                  std::size_t& aReceived);

/// Writes all bytes, and waits where another thread's read with a time-out keeps the handle from
/// blocking.
/// @return `aLength`; what `write` returned when it failed, with its `errno`: EINTR only before the
///         first byte, EAGAIN only on a handle that the application made non-blocking.
ssize_t writeWhole(int aHandle, const char* aBuffer, std::size_t aLength);

}  // namespace osx

#endif
