// Where this PC could host the panel's camera: a video device of the
// v4l2loopback module, found at run time by its driver name.
#pragma once

#include <string>

namespace zv::media {

// "/dev/videoN" whose driver is "v4l2 loopback"; empty when there is none.
std::string findLoopbackCamera(const std::string& devFolder = "/dev");

}  // namespace zv::media
