#include "apps/common/event/brokersocket.h"

#include <cstring>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>

namespace {

// Whether a broker that is bound to `path` is taken for a virtual device's.
bool isVirtual(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    const auto* const name = reinterpret_cast<const sockaddr*>(&address);
    const Descriptor broker(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const Descriptor client(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    EXPECT_EQ(bind(broker.get(), name, sizeof address), 0) << path << ": " << std::strerror(errno);
    EXPECT_EQ(listen(broker.get(), 1), 0);
    EXPECT_EQ(connect(client.get(), name, sizeof address), 0);
    return isOfVirtualDevice(client.get());
}

TEST(BrokerSocket, OnlyTheDevicesPathInAFolderIsAVirtualDevice) {
    char folder[] = "/tmp/broker-XXXXXX";
    ASSERT_NE(mkdtemp(folder), nullptr);
    const std::string root = folder;
    std::filesystem::create_directories(root + "/var/volatile");
    EXPECT_TRUE(isVirtual(root + "/var/volatile/message-broker.socket"));
    EXPECT_FALSE(isVirtual(root + "/message-broker.socket"));
    std::filesystem::remove_all(root);
    EXPECT_FALSE(isOfVirtualDevice(-1));
}

} // namespace
