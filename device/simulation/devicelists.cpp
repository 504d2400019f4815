#include "device/simulation/contentparts.h"
#include "device/simulation/variable.h"

namespace {

struct Accessory {
    const char* serial;
    const char* name;
    const char* version;
};

void fillAccessories() {
    constexpr Accessory ACCESSORIES[] = {
        {"31044", "Motor Controller", "3.1.7"},
        {"5512", "Ultrasonic Ranger", "1.9.0"},
        {"880213", "Lens Data Display", "2.0.4"},
    };
    Variable list("RBusDeviceList");
    int count = 0;
    for (const Accessory& accessory : ACCESSORIES) {
        list.setElement(count++, {{"RBusDeviceConnected", "true"},
                                  {"RBusSerNumber", accessory.serial},
                                  {"RBusDeviceName", accessory.name},
                                  {"RBusMainSwVersion", accessory.version},
                                  {"RBusBootSwVersion", "1.0.2"},
                                  {"RBusHwVersion", "B"},
                                  {"RBusUpdatePossible", "true"}});
    }
    Variable("RBusDeviceListSize").setInt(count);
}

void fillRadioModules() {
    Variable list("RadioModuleList");
    const auto add = [&list](int place, const char* type, const char* channel, const char* isPresent) {
        list.setElement(place, {{"RadioModuleType", type},
                                {"RadioModuleRegion", "Europe"},
                                {"RadioModuleChannel", channel},
                                {"RadioModulePresent", isPresent},
                                {"RadioModuleActive", isPresent}});
    };
    add(0, "Emip", "2", "false");
    add(1, "P900", "0", "false");
    add(2, "P2400", "4", "true");
}

void fillMotor(const char* variable, const char* axis, const char* serial, const char* torque) {
    Variable(variable).setElement(0, {{"MotorState", "Present"},
                                      {"MotorConnectedTo", "ConnectedToModem"},
                                      {"MotorAxis", axis},
                                      {"MotorGearTeeth", "Auto"},
                                      {"MotorName", "Motor"},
                                      {"MotorSerialNumber", serial},
                                      {"MotorFirmwareVersion", "214"},
                                      {"MotorTorque", torque},
                                      {"MotorTorqueLimit", "4"},
                                      {"MotorUpperLimit", "1"},
                                      {"MotorCurrent", "0.12"},
                                      {"MotorTemperature", "34.5"},
                                      {"MotorVoltage", "24.1"},
                                      {"MotorCalibrated", "true"}});
}

template <std::size_t COUNT>
void fillNames(const char* list, const char* member, const char* size, const char* const (&names)[COUNT]) {
    Variable variable(list);
    int place = 0;
    for (const char* name : names)
        variable.setElement(place++, {{member, name}});
    Variable(size).setInt(place);
}

void fillTimezones() {
    constexpr const char* CONTINENTS[] = {"Africa",    "America",  "Antarctica", "Arctic", "Asia",
                                          "Australia", "Atlantic", "Europe",     "Indian", "Pacific"};
    constexpr const char* COUNTRIES[] = {
        "Amsterdam", "Athens",   "Belgrade", "Berlin",    "Brussels", "Bucharest", "Budapest", "Dublin",
        "Helsinki",  "Istanbul", "Kyiv",     "Lisbon",    "London",   "Madrid",    "Oslo",     "Paris",
        "Prague",    "Rome",     "Sofia",    "Stockholm", "Vienna",   "Warsaw",    "Zurich"};
    constexpr int EUROPE = 7;
    constexpr int VIENNA = 20;
    fillNames("DateTimezoneContinentList", "TimezoneContinentName", "DateTimezoneContinentListSize",
              CONTINENTS);
    fillNames("DateTimezoneCountryList", "TimezoneCountryName", "DateTimezoneCountryListSize", COUNTRIES);
    Variable("DateTimezoneContinent").setInt(EUROPE);
    Variable("DateTimezoneCountry").setInt(VIENNA);
}

void fillBluetooth() {
    Variable list("BluetoothDeviceList");
    list.setElement(0, {{"BluetoothState", "Connected"},
                        {"BluetoothName", "Script tablet"},
                        {"BluetoothAddress", "02:00:5e:44:10:01"},
                        {"BluetoothPaired", "true"},
                        {"BluetoothTrusted", "true"}});
    list.setElement(
        1, {{"BluetoothName", "Camera assistant’s phone"}, {"BluetoothAddress", "02:00:5e:44:10:02"}});
    Variable("BluetoothDeviceListSize").setInt(2);
}

void fillUserSetups() {
    constexpr const char* SETUPS[] = {"Steadicam", "Car rig", "Second unit"};
    fillNames("UserSetupList", "UserSetupFileName", "UserSetupListSize", SETUPS);
    Variable list("UserSetupList");
    for (int place = 0; place < 3; ++place)
        list.setElement(place, {{"UserSetupFileValid", "true"}});
}

} // namespace

void fillDeviceLists() {
    fillAccessories();
    fillRadioModules();
    fillMotor("FocusMotor", "Focus", "70114", "2");
    fillMotor("IrisMotor", "Iris", "70115", "1");
    fillMotor("ZoomMotor", "Zoom", "70131", "3");
    fillMotor("AUXMotor", "AUX", "70140", "2");
    fillTimezones();
    fillBluetooth();
    fillUserSetups();
}
