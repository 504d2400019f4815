#include "apps/web/service/app/deviceinfo.h"

#include "apps/common/introspection/sharedvalue.h"
#include "apps/common/introspection/valueconversion.h"
#include "gen/code/introspection_gen.h"
#include "gen/code/memories.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <ostream>
#include <sys/statvfs.h>

namespace {

constexpr SharedText PRODUCT_NAME{{&gMemPersistent, offsetof(MemPersistent, ProductName), 0},
                                  sizeof(MemPersistent::ProductName)};
constexpr SharedText PRODUCT_VERSION{{&gMemPersistent, offsetof(MemPersistent, ProductVersion), 0},
                                     sizeof(MemPersistent::ProductVersion)};
constexpr std::size_t ACCESSORIES = sizeof(MemExternalDevices::RBusDeviceList) / sizeof(RbusDevice);

void writeSpace(std::ostream& out) {
    struct statvfs root = {};
    std::uint32_t total = 0;
    std::uint32_t available = 0;
    if (statvfs("/", &root) == 0) {
        const auto blockSize = static_cast<std::uint32_t>(root.f_bsize);
        total = static_cast<std::uint32_t>(root.f_blocks) * blockSize;
        available = static_cast<std::uint32_t>(root.f_bavail) * blockSize;
    }
    out << "  \"space_total\": " << total << ",\r\n"
        << "  \"space_available\": " << available << ",\r\n";
}

void writeAccessory(std::ostream& out, const RbusDevice& device) {
    const std::string name = fieldText(device.RBusDeviceName, sizeof device.RBusDeviceName);
    out << "    {\r\n"
        << "      \"_id\": \"" << name << "-" << device.RBusSerNumber << "\",\r\n"
        << "      \"name\": \"" << name << "\",\r\n"
        << "      \"serialnumber\": \"" << device.RBusSerNumber << "\",\r\n"
        << "      \"firmwareversion\": \""
        << fieldText(device.RBusMainSwVersion, sizeof device.RBusMainSwVersion) << "\"\r\n"
        << "    }";
}

void writeAccessories(std::ostream& out) {
    if (gMemExternalDevices == nullptr)
        return;
    const char* list = gMemExternalDevices + offsetof(MemExternalDevices, RBusDeviceList);
    const char* separator = "";
    for (std::size_t i = 0; i < ACCESSORIES; ++i) {
        RbusDevice device;
        std::memcpy(&device, list + i * sizeof device, sizeof device); // another process may be writing it
        if (device.RBusDeviceConnected == 0)
            continue;
        out << separator;
        writeAccessory(out, device);
        separator = ", \r\n";
    }
}

} // namespace

void writeDeviceInfo(std::ostream& out, const std::string& deviceId, const std::string& serial) {
    out << "{\r\n"
        << "  \"_id\": \"" << deviceId << "\",\r\n"
        << "  \"name\": \"" << PRODUCT_NAME.read() << "\",\r\n"
        << "  \"serialnumber\": \"" << serial << "\",\r\n"
        << "  \"firmwareversion\": \"" << PRODUCT_VERSION.read() << "\",\r\n";
    writeSpace(out);
    out << "  \"devices\": [\r\n";
    writeAccessories(out);
    out << "\r\n  ]\r\n"
        << "}\r\n";
}
