#ifndef ONVIFTYPES_TESTS_SIMCAMERA_H
#define ONVIFTYPES_TESTS_SIMCAMERA_H

#include <camera.h>

#include <memory>

// A simulated camera on loopback, running; the test stops when it cannot start.
std::unique_ptr<CameraSim::Camera> startCamera(
    const CameraSim::CameraConfig& config = CameraSim::CameraConfig::defaultCamera());

// A fault of that kind for count requests (-1: until cleared).
CameraSim::FaultSpec faultOf(CameraSim::FaultMode mode, int count = -1);

// A loopback port that nothing listens on.
quint16 closedPort();

#endif
