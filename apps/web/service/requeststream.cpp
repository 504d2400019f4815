#include "apps/web/service/requeststream.h"

#include "apps/web/service/request.h"

RequestStream::RequestStream(Request& request) : std::ostream(nullptr), buffer_(request) {
    rdbuf(&buffer_);
}

std::streamsize RequestStream::Buffer::xsputn(const char* data, std::streamsize length) {
    request_.write({data, static_cast<std::size_t>(length)});
    return length;
}

RequestStream::Buffer::int_type RequestStream::Buffer::overflow(int_type character) {
    const char byte = traits_type::to_char_type(character);
    return xsputn(&byte, 1) == 1 ? traits_type::not_eof(character) : traits_type::eof();
}
