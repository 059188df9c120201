#include "hostfw/nvme_commands.h"

#include <algorithm>
#include <cstring>

#include "hostfw/little_endian.h"

namespace hostfw {
using namespace nvme;
namespace {

constexpr uint32_t kAllNamespaces = 0xFFFFFFFF;

uint64_t slba(const NvmeCommand& c) { return uint64_t{c.cdw11} << 32 | c.cdw10; }
uint64_t blocks(const NvmeCommand& c) { return uint64_t{c.cdw12 & 0xFFFF} + 1; }
uint64_t log_bytes(const NvmeCommand& c) { return ((uint64_t{c.cdw11 & 0xFFFF} << 16 | c.cdw10 >> 16) + 1) * 4; }

// What the command moves through the buffer, known before it runs.
uint64_t transfer_of(const NvmeDrive& d, const NvmeCommand& c) {
  if (c.admin) {
    if (c.opcode == kIdentify) return kIdentifyBytes;
    if (c.opcode == kGetLogPage) return log_bytes(c);
    return 0;
  }
  if (c.opcode == kRead || c.opcode == kWrite || c.opcode == kCompare) return blocks(c) * d.info.lba_bytes;
  return 0;
}

struct Run {
  NvmeDrive& drive;
  const NvmeCommand& c;
  uint8_t* buffer;
  uint64_t now;
  NvmeExecution out;

  NvmeExecution finish(Status s) {
    out.status = s;
    return out;
  }
  void send(const std::vector<uint8_t>& page, uint64_t offset, uint64_t bytes) {
    std::memset(buffer, 0, bytes);
    if (offset < page.size()) std::memcpy(buffer, page.data() + offset, std::min<uint64_t>(bytes, page.size() - offset));
  }

  NvmeExecution identify() {
    const uint8_t cns = c.cdw10 & 0xFF;
    switch (cns) {
      case kCnsController: send(drive.identify_controller(), 0, kIdentifyBytes); return finish(kSuccess);
      case kCnsNamespace:
        if (!drive.namespace_exists(c.nsid)) return finish(kInvalidNamespace);
        send(drive.identify_namespace(c.nsid), 0, kIdentifyBytes);
        return finish(kSuccess);
      case kCnsActiveNamespaces:
        if (c.nsid >= 0xFFFFFFFE) return finish(kInvalidNamespace);
        send(drive.active_namespaces(c.nsid), 0, kIdentifyBytes);
        return finish(kSuccess);
      default: return finish(kInvalidField);
    }
  }

  NvmeExecution get_log_page() {
    const uint8_t lid = c.cdw10 & 0xFF;
    const uint64_t offset = uint64_t{c.cdw13} << 32 | c.cdw12;
    const uint64_t bytes = log_bytes(c);
    if (bytes > drive.transfer_limit() || offset % 4 != 0) return finish(kInvalidField);
    switch (lid) {
      case kLogErrorInformation: send(drive.error_log(), offset, bytes); return finish(kSuccess);
      case kLogSmartHealth:
        // Kept for the controller as a whole only (LPA bit 0 clear).
        if (c.nsid != 0 && c.nsid != kAllNamespaces) return finish(kInvalidField);
        send(drive.smart_health_log(now), offset, bytes);
        return finish(kSuccess);
      case kLogDeviceSelfTest:
        if (!drive.self_test_supported()) return finish(kInvalidLogPage);
        drive.settle(now);
        send(drive.self_test_log(now), offset, bytes);
        return finish(kSuccess);
      default: return finish(kInvalidLogPage);
    }
  }

  NvmeExecution device_self_test() {
    if (!drive.self_test_supported()) return finish(kInvalidOpcode);
    if (c.nsid != 0 && c.nsid != kAllNamespaces && !drive.namespace_exists(c.nsid)) return finish(kInvalidNamespace);
    return finish(drive.start_self_test(c.cdw10 & 0xF, c.nsid, now));
  }

  NvmeExecution admin() {
    switch (c.opcode) {
      case kIdentify: return identify();
      case kGetLogPage: return get_log_page();
      case kDeviceSelfTest: return device_self_test();
      case kAbort: out.dw0 = 1; return finish(kSuccess);  // the command was not found to abort
      case kGetFeatures:
      case kSetFeatures: return finish(kSuccess);
      default: return finish(kInvalidOpcode);  // no Format, Sanitize, firmware or namespace management
    }
  }

  // Read, Verify, Compare: the blocks up to the first unreadable one.
  NvmeExecution read(bool transfers) {
    const uint64_t lba = slba(c), n = blocks(c);
    if (transfers && n * drive.info.lba_bytes > drive.transfer_limit()) return finish(kInvalidField);
    if (!drive.in_range(lba, n)) return finish(kLbaOutOfRange);
    ++drive.read_commands;
    const std::optional<uint64_t> bad = drive.first_bad(c.nsid, lba, n);
    const uint64_t passed = bad ? *bad - lba + 1 : n;
    out.media_ns = drive.media_ns(passed);
    if (transfers) {
      std::memset(buffer, 0, n * drive.info.lba_bytes);
      for (uint64_t i = 0; i < passed - (bad ? 1 : 0); ++i) put_le(buffer + i * drive.info.lba_bytes, lba + i, 8);
      drive.bytes_read += (passed - (bad ? 1 : 0)) * drive.info.lba_bytes;
    }
    if (!bad) return finish(kSuccess);
    ++drive.media_errors;
    drive.log_error(kUnrecoveredReadError, c.nsid, *bad);
    return finish(kUnrecoveredReadError);
  }

  // Write and Write Zeroes: the data is not kept, but the blocks read again.
  NvmeExecution write(bool transfers) {
    const uint64_t lba = slba(c), n = blocks(c);
    if (transfers && n * drive.info.lba_bytes > drive.transfer_limit()) return finish(kInvalidField);
    if (!drive.in_range(lba, n)) return finish(kLbaOutOfRange);
    ++drive.write_commands;
    drive.write(c.nsid, lba, n);
    drive.bytes_written += n * drive.info.lba_bytes;
    out.media_ns = drive.media_ns(n);
    return finish(kSuccess);
  }

  NvmeExecution io() {
    if (!drive.namespace_exists(c.nsid)) return finish(kInvalidNamespace);
    switch (c.opcode) {
      case kRead: return read(true);
      case kVerify: return drive.info.verify ? read(false) : finish(kInvalidOpcode);
      case kWrite: return write(true);
      case kWriteZeroes: return write(false);
      case kFlush:
      case kDatasetManagement: return finish(kSuccess);
      default: return finish(kInvalidOpcode);  // no Compare, no Write Uncorrectable
    }
  }
};

}  // namespace

NvmeExecution execute_nvme_command(NvmeDrive& drive, const NvmeCommand& command, uint8_t* buffer,
                                   uint64_t buffer_bytes, uint64_t now_ns) {
  NvmeExecution out;
  const uint64_t transfer = transfer_of(drive, command);
  if (transfer > buffer_bytes) {
    out.completion = NvmeCompletion::kBadBufferSize;
    out.needed_bytes = transfer;
    return out;
  }
  ++drive.counts.total;
  ++(command.admin ? drive.counts.admin : drive.counts.io)[command.opcode];
  if (drive.counts.total > drive.info.stop_answering_after) {
    out.completion = NvmeCompletion::kTimeout;
    return out;
  }
  Run run{drive, command, buffer, now_ns, {}};
  return command.admin ? run.admin() : run.io();
}

}  // namespace hostfw
