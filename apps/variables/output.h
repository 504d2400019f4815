#pragma once

/// Writes what standard output has buffered. Returns false if the reader of a pipe has closed it, which ends
/// a command without a message. Throws std::runtime_error if something could not be written, also earlier.
bool flushOutput();
