// Machine-profile text of any content. A profile the reader refuses must be
// refused with a ProfileError (the file, the line and the reason); one it
// accepts must build a machine. The volumes it names are moved into one
// folder of this process, removed again with the machine, so that no input
// leaves or creates a directory anywhere else on the host.
#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <string>

#include "hostfw/machine.h"
#include "hostfw/profile.h"

namespace {

// A folder that does not exist: relative volume directories resolve below it.
constexpr const char* kBase = "/nonexistent/tarvik-fuzz-profiles";

std::filesystem::path VolumeFolder() {
  return std::filesystem::temp_directory_path() / ("tarvik-fuzz-volumes-" + std::to_string(getpid()));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* Data, size_t Size) {
  const std::string Text(reinterpret_cast<const char*>(Data), Size);
  hostfw::Profile Profile;
  try {
    Profile = hostfw::parse_profile(Text, "<fuzz>", kBase);
  } catch (const hostfw::ProfileError&) {
    return 0;
  }
  const std::filesystem::path Folder = VolumeFolder();
  for (size_t I = 0; I < Profile.volumes.size(); ++I) Profile.volumes[I].directory = (Folder / std::to_string(I)).string();
  {
    hostfw::Options Options;
    Options.virtual_clock = true;
    Options.use_terminal = false;
    hostfw::Machine Machine(std::move(Profile), Options);
  }
  std::error_code Ignored;
  std::filesystem::remove_all(Folder, Ignored);
  return 0;
}
