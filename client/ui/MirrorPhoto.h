// Snapshots of the reverse screen: where they go and how they are named. A
// name carries the second it was taken in, so a second snapshot within the
// same second is not written (the first one stays as it was).
#pragma once

#include <cstddef>
#include <string>

namespace qorquicomponents {
namespace mirror_photo {

// <home>/Zelvanor/Logs/Streaming File/ (with the trailing separator).
std::string folder();

// "MirrorPhoto_<seconds>.jpg".
std::string fileName(long long seconds);

enum class Result { Written, AlreadyExists, Failed };

// Creates dir when missing and writes size bytes of data to dir + the name
// for seconds, unless that file exists. path receives the file's path.
Result save(const std::string& dir, long long seconds, const unsigned char* data, size_t size, std::string& path);

}  // namespace mirror_photo
}  // namespace qorquicomponents
