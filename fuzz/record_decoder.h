// The state store's keys and the records under them, fed with bytes.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kavrel_fuzz {

/// `data` is a key, a NUL, and a record. The key must be taken exactly when it is one; the record,
/// given the checksum that belongs to it, must be refused or be a value that is kept as the same
/// bytes; with any other checksum, and under any other key, it must be refused. Whether key and
/// record decode.
bool DecodeRecord(const std::uint8_t* data, std::size_t size);

}  // namespace kavrel_fuzz
