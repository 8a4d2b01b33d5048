// The folder that holds the running vestrel-host, where the files built
// with it (the demo firmware) are found.
#pragma once

#include <filesystem>

namespace vestrel::host {

// Empty when the platform cannot say.
std::filesystem::path programFolder();

}  // namespace vestrel::host
