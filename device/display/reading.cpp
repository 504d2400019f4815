#include "device/display/reading.h"

Reader::Reader() {
    for (std::size_t i = 0; i < Reading::MARKERS; ++i)
        markers_.emplace_back("LensMarkerFocusValue" + std::to_string(i));
}

Reading Reader::read() const {
    Reading reading;
    reading.focus = focus_.read();
    reading.iris = iris_.read();
    reading.zoom = zoom_.read();
    reading.nearMetres = near_.toFloat();
    reading.farMetres = far_.toFloat();
    for (std::size_t i = 0; i < Reading::MARKERS; ++i)
        reading.markers[i] = markers_[i].toFloat();
    reading.isInFeet = unit_.text() == "Feet";
    reading.lens = lens_.text();
    reading.batteryPercent = battery_.toInt();
    reading.isRadioOn = radioState_.text() == "Operating";
    reading.radioChannel = radioChannel_.toInt();
    reading.radioPercent = radioQuality_.toInt();
    readCamera(reading);
    return reading;
}

void Reader::readCamera(Reading& reading) const {
    reading.cameraIndex = cameraIndex_.text();
    reading.cameraState = cameraState_.text();
    reading.codec = codec_.text();
    reading.footageSeconds = footage_.toFloat();
    reading.framesPerSecond = speed_.toFloat();
    reading.shutterDegrees = shutter_.toFloat();
    reading.exposureIndex = exposureIndex_.toInt();
    reading.whiteBalanceKelvin = whiteBalance_.toInt();
}
