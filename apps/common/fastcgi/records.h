#pragma once

#include <cstddef>
#include <string>
#include <string_view>

/// Records of FastCGI version 1 (https://fastcgi-archives.github.io/FastCGI_Specification.html). All integers
/// are big-endian; content and padding follow the header:
///
///     0         1        2            4                6                7          8
///     +---------+--------+------------+----------------+----------------+----------+
///     | version |  type  | request id | content length | padding length | reserved |
///     +---------+--------+------------+----------------+----------------+----------+
namespace fastcgi {

enum RecordType : unsigned char {
    BeginRequest = 1,
    EndRequest = 3,
    Params = 4,
    Stdin = 5,
    Stdout = 6,
    Stderr = 7,
    MaxType = 10
};

/// Longest content of a written record: the largest multiple of 8 that the length field holds.
constexpr unsigned int MAX_CONTENT = 65528;

/// Decodes one length of a PARAMS pair, of one byte or four. Moves `cursor` and `remaining` on. Returns -1
/// when there are too few bytes.
int decodeLength(const unsigned char*& cursor, int& remaining);

struct Pair {
    std::string_view name;
    std::string_view value;
};

/// Takes the first name-value pair off the front of a PARAMS content. Returns false, with `content`
/// unspecified, when it does not fit into the content or is all empty.
bool takePair(std::string_view& content, Pair& pair);

/// Appends `text` as STDOUT records without padding; an empty text adds none.
void appendOutput(std::string& out, unsigned short requestId, std::string_view text);

/// Appends END_REQUEST with application status 0 and FCGI_REQUEST_COMPLETE.
void appendEnd(std::string& out, unsigned short requestId);

} // namespace fastcgi
