// The simulated NVMe drives against raw pass-through packets: what the NVMe
// algorithms' tests do not see through the application (inactive
// namespaces, the logs growing with what happened, per-namespace faults,
// transfers past MDTS), what the firmware refuses, and the opcode counts.
// Self-tests are followed to their outcome by the algorithms' tests.
#include <gtest/gtest.h>

#include <cstdio>
#include <optional>
#include <string>
#include <vector>

#include "hostfw/nvme_controller.h"
#include "tests/support/test_machine.h"

namespace {

constexpr uint8_t kAllDwords = 0xFC;  // CDW10_VALID … CDW15_VALID
constexpr uint32_t kAll = 0xFFFFFFFF;
constexpr uint64_t kSecond = 1000ull * 1000 * 1000;

struct Reply {
  EFI_STATUS status = EFI_SUCCESS;
  EFI_NVM_EXPRESS_COMPLETION cqe{};
  std::vector<uint8_t> data;
  UINT32 length = 0;  // TransferLength after the call

  int sct() const { return (cqe.DW3 >> 25) & 7; }
  int sc() const { return (cqe.DW3 >> 17) & 0xFF; }
  uint64_t le(size_t at, int bytes) const {
    uint64_t v = 0;
    for (int i = bytes - 1; i >= 0; --i) v = v << 8 | data.at(at + i);
    return v;
  }
};

// How the command ended: "ok", "sct/sc" in hexadecimal for an error status
// (with "!" when Do Not Retry is set), or the EFI status the firmware gave
// instead ("efi 2" for EFI_INVALID_PARAMETER).
std::string outcome(const Reply& r) {
  if (r.status == EFI_SUCCESS && r.cqe.DW3 >> 17 == 0) return "ok";
  if (r.status == EFI_TIMEOUT) return "timeout";
  char text[48];
  if (r.status == EFI_DEVICE_ERROR)
    std::snprintf(text, sizeof text, "%x/%02x%s", r.sct(), r.sc(), r.cqe.DW3 >> 31 ? "!" : "");
  else
    std::snprintf(text, sizeof text, "efi %d", int(r.status & 0xFF));
  return text;
}

struct Command {
  uint8_t opcode = 0;
  uint32_t nsid = 0;
  uint32_t cdw10 = 0, cdw11 = 0, cdw12 = 0, cdw13 = 0;
  uint8_t flags = kAllDwords;
};

class NvmeBench {
 public:
  explicit NvmeBench(const std::vector<std::string>& drives)
      : profile_(hostfw::parse_profile(text(drives), "nvme.ini", "/tmp")), machine_("", &profile_) {}

  static std::string text(const std::vector<std::string>& drives) {
    std::string t = "[machine]\nname = Bench\nmemory_mib = 64\n";
    for (const std::string& d : drives) t += "[nvme]\nmodel = Korvan N1\nserial = KN1-0042\nfirmware = 1.2\n" + d;
    return t;
  }
  hostfw::NvmeController& drive(size_t i = 0) { return machine_->nvme(i); }

  // The packet goes to the command's namespace unless namespace_id says otherwise.
  Reply send(bool admin, const Command& c, UINT32 bytes = 0, size_t drive_index = 0,
             std::optional<UINT32> namespace_id = {}, size_t misalign = 0) {
    Reply r;
    EFI_NVM_EXPRESS_COMMAND cmd{};
    cmd.Cdw0.Opcode = c.opcode;
    cmd.Flags = c.flags;
    cmd.Nsid = c.nsid;
    cmd.Cdw10 = c.cdw10, cmd.Cdw11 = c.cdw11, cmd.Cdw12 = c.cdw12, cmd.Cdw13 = c.cdw13;
    std::vector<uint64_t> buffer(bytes / 8 + 2);  // 8-byte aligned
    EFI_NVM_EXPRESS_PASS_THRU_COMMAND_PACKET p{};
    p.CommandTimeout = 10 * 10000000ull;
    p.TransferBuffer = bytes ? reinterpret_cast<uint8_t*>(buffer.data()) + misalign : nullptr;
    p.TransferLength = bytes;
    p.QueueType = admin ? NVME_ADMIN_QUEUE : NVME_IO_QUEUE;
    p.NvmeCmd = &cmd;
    p.NvmeCompletion = &r.cqe;
    EFI_NVM_EXPRESS_PASS_THRU_PROTOCOL* nvme = drive(drive_index).protocol();
    r.status = nvme->PassThru(nvme, namespace_id.value_or(c.nsid), &p, nullptr);
    r.length = p.TransferLength;
    if (bytes) r.data.assign(static_cast<uint8_t*>(p.TransferBuffer), static_cast<uint8_t*>(p.TransferBuffer) + bytes);
    return r;
  }
  Reply identify(uint8_t cns, uint32_t nsid = 0) { return send(true, {0x06, nsid, cns}, 4096); }
  Reply log(uint8_t lid, uint32_t bytes, uint32_t nsid = kAll, uint32_t offset = 0) {
    return send(true, {0x02, nsid, lid | (bytes / 4 - 1) << 16, 0, offset}, bytes);
  }
  Reply io(uint8_t opcode, uint64_t lba, uint32_t blocks, uint32_t nsid = 1, uint32_t bytes = 0, size_t d = 0) {
    return send(false, {opcode, nsid, uint32_t(lba), uint32_t(lba >> 32), blocks - 1}, bytes, d);
  }
  uint64_t now_ns() { return machine_->clock().now_ns(); }
  void stall_seconds(uint64_t s) { machine_->boot_services()->Stall(s * 1000000); }

  hostfw::Profile profile_;
  testing_support::TestMachine machine_;
};

// The profile's figures reach the algorithms' verdicts (their tests); here
// what the logs add as the machine runs.
TEST(NvmeController, HealthAndErrorLogsReportWhatHappenedSinceThePowerOn) {
  NvmeBench bench({"size_gib = 1\ncritical_warning = 0x04\navailable_spare = 5\nspare_threshold = 10\n"
                   "media_errors = 3\npower_on_hours = 100\nbad_lbas = 0, 2097151\nerror_log_lbas = 700, 800\n"});
  EXPECT_EQ(outcome(bench.io(0x02, 2097150, 2, 1, 1024)), "2/81") << "the last block; retrying may help";
  bench.stall_seconds(7200);
  const Reply h = bench.log(0x02, 512);
  ASSERT_EQ(outcome(h), "ok");
  EXPECT_EQ(h.data[0], 0x05) << "given bits, and spare below threshold";
  EXPECT_EQ(h.le(128, 8), 102u) << "power-on hours grow";
  EXPECT_EQ(h.le(160, 8), 4u) << "media errors";
  EXPECT_EQ(h.le(176, 8), 3u) << "error log entries";

  const Reply e = bench.log(0x01, 4096);
  ASSERT_EQ(outcome(e), "ok");
  for (int i = 0; i < 3; ++i) {  // newest first: the read just now, then the profile's
    EXPECT_EQ(e.le(64 * i, 8), uint64_t(3 - i));
    EXPECT_EQ(e.le(64 * i + 16, 8), (std::vector<uint64_t>{2097151, 800, 700})[i]);
    EXPECT_EQ(e.le(64 * i + 12, 2) >> 1, 0x81u | 2u << 8) << "Unrecovered Read Error";
  }
  EXPECT_EQ(e.le(64 * 3, 8), 0u);
  EXPECT_EQ(bench.log(0x01, 64, kAll, 64).le(16, 8), 800u) << "from an offset";

  EXPECT_EQ(outcome(bench.log(0x02, 512, 1)), "0/02!") << "no per-namespace health";
  EXPECT_EQ(outcome(bench.log(0x03, 512)), "0/02!");
  const Reply above = bench.log(0x02, 256 * 1024);
  EXPECT_EQ(outcome(above), "efi 4") << "above MDTS";
  EXPECT_EQ(above.length, 128u * 1024);
}

TEST(NvmeController, ReadAndVerifyKeepToTheirNamespaceAndTheTransferLimits) {
  NvmeBench bench({"blocks = 100000\nnamespaces = 2\nmax_namespaces = 4\nbad_lbas = 2:500-501\n",
                   "blocks = 4096\nlba_size = 4096\nverify = no\n"});
  const struct {
    uint8_t opcode;
    uint64_t lba;
    uint32_t blocks, nsid, bytes;
    size_t drive;
    const char* outcome;
  } cases[] = {
      {0x0C, 490, 20, 1, 0, 0, "ok"},        {0x0C, 490, 20, 2, 0, 0, "2/81"},
      {0x0C, 1, 256, 1, 0, 0, "ok"},         {0x0C, 1, 257, 1, 0, 0, "0/02!"},
      {0x02, 1, 256, 1, 131072, 0, "ok"},    {0x02, 1, 257, 1, 131584, 0, "efi 4"},
      {0x02, 1, 2, 1, 512, 0, "efi 4"},      {0x0C, 99990, 11, 1, 0, 0, "0/80!"},
      {0x02, 0, 1, 3, 512, 0, "0/0b!"},      {0x02, 0, 1, 5, 512, 0, "efi 2"},
      {0x02, 4095, 1, 1, 4096, 1, "ok"},     {0x0C, 0, 1, 1, 0, 1, "0/01!"},
      {0x05, 0, 1, 1, 512, 0, "0/01!"},      {0x04, 0, 1, 1, 0, 0, "0/01!"},
  };
  for (const auto& c : cases)
    EXPECT_EQ(outcome(bench.io(c.opcode, c.lba, c.blocks, c.nsid, c.bytes, c.drive)), c.outcome)
        << int(c.opcode) << " at " << c.lba << " of " << c.nsid;
}

TEST(NvmeController, TheFirmwareRefusesMalformedPacketsAndTheDriveWhatItDoesNotHave) {
  NvmeBench bench({"blocks = 100000\nio_align = 8\nnamespaces = 3\nmax_namespaces = 8\n"});
  EFI_NVM_EXPRESS_PASS_THRU_PROTOCOL* nvme = bench.drive().protocol();
  EXPECT_EQ(bench.send(false, {0x02, 1, 0, 0, 0}, 512, 0, {}, 4).status, EFI_INVALID_PARAMETER) << "misaligned";
  EXPECT_EQ(bench.send(false, {0x02, 1, 0, 0, 0}, 512, 0, 0).status, EFI_INVALID_PARAMETER) << "not the command's";
  const Reply shorter = bench.send(true, {0x06, 0, 1}, 512);
  EXPECT_EQ(shorter.status, EFI_BAD_BUFFER_SIZE);
  EXPECT_EQ(shorter.length, 4096u);
  EXPECT_EQ(outcome(bench.identify(0x00, 9)), "efi 2") << "above NN";
  EXPECT_EQ(bench.send(true, {0x05}).status, EFI_UNSUPPORTED) << "creating a queue";
  EFI_NVM_EXPRESS_COMMAND cmd{};
  EFI_NVM_EXPRESS_PASS_THRU_COMMAND_PACKET p{};
  p.NvmeCmd = &cmd;
  EXPECT_EQ(nvme->PassThru(nvme, 0, &p, nullptr), EFI_INVALID_PARAMETER) << "no completion";
  EXPECT_EQ(bench.drive().counts().total, 0u);

  const Reply inactive = bench.identify(0x00, 4);
  EXPECT_EQ(outcome(inactive), "ok");
  EXPECT_EQ(inactive.data, std::vector<uint8_t>(4096, 0)) << "an inactive namespace";
  EXPECT_EQ(outcome(bench.identify(0x00, kAll)), "0/0b!");
  EXPECT_EQ(outcome(bench.identify(0x05)), "0/02!");
  // CNS 01h without CDW10_VALID reaches the drive as CNS 00h of namespace 0.
  EXPECT_EQ(outcome(bench.send(true, {0x06, 0, 1, 0, 0, 0, 0}, 4096)), "0/0b!");
  EXPECT_EQ(bench.drive().counts().total, 4u);
}

TEST(NvmeController, EveryOpcodeIsCountedAndASilentDriveTimesOut) {
  NvmeBench bench({"blocks = 100000\nmedia_mb_per_s = 200\n"});
  bench.identify(0x01);
  bench.log(0x02, 512);
  uint64_t before = bench.now_ns();
  EXPECT_EQ(outcome(bench.io(0x0C, 0, 256)), "ok");
  EXPECT_EQ(bench.now_ns() - before, 256ull * 512000 / 200) << "Verify at the media rate";
  bench.io(0x02, 0, 8, 1, 4096);
  bench.io(0x01, 0, 8, 1, 4096);
  bench.io(0x09, 0, 1);
  bench.send(true, {0x80, 1});
  const hostfw::NvmeCommandCounts& counts = bench.drive().counts();
  EXPECT_EQ(counts.total, 7u);
  EXPECT_EQ(counts.admin_command(0x0C) + counts.io_command(0x06), 0u) << "admin and I/O apart";
  EXPECT_EQ(counts.changing_commands(), 3u) << "Write, Dataset Management, Format NVM";
  EXPECT_EQ(counts.others_than({0x02, 0x06}, {0x02, 0x0C}), 3u);

  bench.drive().stop_answering_after(1);
  EXPECT_EQ(outcome(bench.identify(0x01)), "ok");
  before = bench.now_ns();
  EXPECT_EQ(outcome(bench.identify(0x01)), "timeout");
  EXPECT_EQ(bench.now_ns() - before, 10 * kSecond);
}

TEST(NvmeController, ProfilesThatDescribeNoSuchDriveAreRefused) {
  for (const char* keys : {"size_gib = 1\nlba_size = 1024\n", "blocks = 100\n", "\n", "size_gib = 1\nblocks = 4096\n",
                           "blocks = 4096\nbad_lbas = 4096\n", "blocks = 4096\nbad_lbas = 2:1\n",
                           "blocks = 4096\nerror_log_lbas = 1-2\n", "blocks = 4096\nself_test = maybe\n",
                           "blocks = 4096\nio_align = 3\n", "blocks = 4096\nnamespaces = 2\nmax_namespaces = 1\n"})
    EXPECT_THROW(hostfw::parse_profile(NvmeBench::text({keys}), "nvme.ini", "/tmp"), hostfw::ProfileError) << keys;
}

}  // namespace
