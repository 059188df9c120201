#include "storage/storage_run.h"

namespace tarvik {

VOID StorageRun::LogKey(const CHAR16* Format, const CHAR16* Key) { Log(Format, Key); }

VOID StorageRun::LogReadError(UINT64 Lba) { Log(u"ERROR %s %ld", KeyReadSectorError, Lba); }

}  // namespace tarvik
