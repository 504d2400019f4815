#include "device/preload/preload.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/un.h>

// The wrappers of the functions that give a socket its address.

namespace {

constexpr unsigned short DEVICE_PORT = 9000;

constinit Next<int(int, const sockaddr*, socklen_t)> nextBind("bind");
constinit Next<int(int, const sockaddr*, socklen_t)> nextConnect("connect");

bool hasFamily(const sockaddr* address, socklen_t length, sa_family_t family) {
    return address != nullptr && length >= sizeof(sa_family_t) && address->sa_family == family;
}

// The port that replaces the device's, or 0.
unsigned short replacementPort() {
    const char* const text = std::getenv("VIRTUAL_DEVICE_PORT");
    const int port = text == nullptr ? 0 : std::atoi(text);
    return port > 0 && port < 65536 ? static_cast<unsigned short>(port) : 0;
}

// The address argument for the original. Does not own the caller's address, which must outlive it.
class AddressArgument {
public:
    AddressArgument(const sockaddr* address, socklen_t length) : address_(address), length_(length) {
        if (hasFamily(address, length, AF_UNIX))
            mapPath();
    }

    // False when the mapped path does not fit an address; errno is ENAMETOOLONG then.
    bool isUsable() const { return isUsable_; }
    const sockaddr* address() const { return address_; }
    socklen_t length() const { return length_; }

    // Replaces the device's port if the environment sets another.
    void movePort() {
        if (!hasFamily(address_, length_, AF_INET) || length_ < sizeof inet_ || replacementPort() == 0)
            return;
        std::memcpy(&inet_, address_, sizeof inet_);
        if (inet_.sin_port == htons(DEVICE_PORT)) {
            inet_.sin_port = htons(replacementPort());
            address_ = reinterpret_cast<const sockaddr*>(&inet_);
            length_ = sizeof inet_;
        }
    }

private:
    void mapPath() {
        // One byte more, because the kernel accepts a path without terminator that fills the address.
        char path[sizeof unix_.sun_path + 1] = "";
        const std::size_t given = length_ - offsetof(sockaddr_un, sun_path);
        std::memcpy(path, reinterpret_cast<const char*>(address_) + offsetof(sockaddr_un, sun_path),
                    std::min(sizeof unix_.sun_path, given));
        const PathArgument argument(path);
        if (argument.text() == path && argument.isUsable())
            return;
        const bool fits = argument.isUsable() && std::strlen(argument.text()) < sizeof unix_.sun_path;
        if (!fits) {
            isUsable_ = false;
            errno = ENAMETOOLONG;
            return;
        }
        unix_.sun_family = AF_UNIX;
        std::memcpy(unix_.sun_path, argument.text(), std::strlen(argument.text()));
        address_ = reinterpret_cast<const sockaddr*>(&unix_);
        length_ = sizeof unix_;
    }

    const sockaddr* address_;
    socklen_t length_;
    bool isUsable_ = true;
    sockaddr_un unix_{};
    sockaddr_in inet_{};
};

} // namespace

INTERPOSED int connect(int fd, const sockaddr* address, socklen_t length) {
    const AddressArgument argument(address, length);
    return argument.isUsable() ? nextConnect(fd, argument.address(), argument.length()) : -1;
}

INTERPOSED int bind(int fd, const sockaddr* address, socklen_t length) noexcept {
    AddressArgument argument(address, length);
    argument.movePort();
    return argument.isUsable() ? nextBind(fd, argument.address(), argument.length()) : -1;
}
