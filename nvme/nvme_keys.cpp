#include "nvme/nvme_keys.h"

#include "core/wide_string.h"

namespace tarvik {
namespace {

struct KeyText {
  const CHAR16* Key;
  UINT64 Text;  // number of the "NVMe" text
};

constexpr const CHAR16* AlgorithmKeys[NvmeAlgorithmCount] = {
    u"NVMEHEALTH", u"NVMESHORTSELFTEST", u"NVMEEXTENDEDSELFTEST", u"NVMERANDOMREAD", u"NVMEERRORLOGREAD",
    u"NVMEFULLREADSCAN",
};

constexpr KeyText KeyTexts[] = {
    {u"NVME", nvme_text::ModuleName},
    {u"MODEL", nvme_text::ModelNumber},
    {u"SERIAL", nvme_text::SerialNumber},
    {u"FIRMWARE", nvme_text::FirmwareRevision},
    {u"SIZE", nvme_text::Size},
    {u"LBA_SIZE", nvme_text::LbaSize},
    {u"NVME_VERSION", nvme_text::Version},
    {u"NAMESPACE", nvme_text::Namespace},
    {u"SMART_HEALTH", 96},
    {u"SMART_SPARE", 97},
    {u"SMART_USAGE", 98},
    {u"NVME_HEALTH_FAILING", 104},
    {u"SELF_TEST_NOT_SUPPORTED", 105},
    {u"SELF_TEST_ALREADY_IN_PROGRESS", 106},
    {u"SELF_TEST_FAILED", 107},
    {u"SELF_TEST_FAILING_LBA", 108},
    {u"NO_LOGGED_LBAS", 109},
    {u"READ_SECTOR_ERROR", 110},
    {u"COMMUNICATION_FAILURE", 111},
    {u"CANT_PERFORM_TEST", 112},
};

}  // namespace

const CHAR16* NvmeAlgorithmKey(UINT64 Index) { return Index < NvmeAlgorithmCount ? AlgorithmKeys[Index] : u""; }

const CHAR16* NvmeKeyText(const NvmeModule& Module, const CHAR16* Key) {
  if (Key == nullptr) return nullptr;
  for (UINT64 I = 0; I < NvmeAlgorithmCount; ++I)
    if (StrCmp(AlgorithmKeys[I], Key) == 0) return NvmeText(Module, nvme_text::FirstAlgorithm + I);
  for (const KeyText& Entry : KeyTexts)
    if (StrCmp(Entry.Key, Key) == 0) return NvmeText(Module, Entry.Text);
  return nullptr;
}

}  // namespace tarvik
