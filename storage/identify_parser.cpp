#include "storage/identify_parser.h"

#include "storage/ata_definitions.h"

namespace tarvik {

namespace {

struct MinorVersionText {
  UINT16 Word;
  const CHAR16* Text;
};

constexpr MinorVersionText MinorVersionTexts[] = {
    {0x000D, u"ATA/ATAPI-4 X3T13 1153D version 6"},
    {0x000E, u"ATA/ATAPI-4 T13 1153D version 13"},
    {0x000F, u"ATA/ATAPI-4 X3T13 1153D version 7"},
    {0x0010, u"ATA/ATAPI-4 T13 1153D version 18"},
    {0x0011, u"ATA/ATAPI-4 T13 1153D version 15"},
    {0x0012, u"ATA/ATAPI-4 published, ANSI INCITS 317-1998"},
    {0x0013, u"ATA/ATAPI-5 T13 1321D version 3"},
    {0x0014, u"ATA/ATAPI-4 T13 1153D version 14"},
    {0x0015, u"ATA/ATAPI-5 T13 1321D version 1"},
    {0x0016, u"ATA/ATAPI-5 published, ANSI INCITS 340-2000"},
    {0x0017, u"ATA/ATAPI-4 T13 1153D version 17"},
    {0x0018, u"ATA/ATAPI-6 T13 1410D version 0"},
    {0x0019, u"ATA/ATAPI-6 T13 1410D version 3a"},
    {0x001A, u"ATA/ATAPI-7 T13 1532D version 1"},
    {0x001B, u"ATA/ATAPI-6 T13 1410D version 2"},
    {0x001C, u"ATA/ATAPI-6 T13 1410D version 1"},
    {0x001D, u"ATA/ATAPI-7 published ANSI INCITS 397-2005."},
    {0x001E, u"ATA/ATAPI-7 T13 1532D version 0"},
    {0x0021, u"ATA/ATAPI-7 T13 1532D version 4a"},
    {0x0022, u"ATA/ATAPI-6 published, ANSI INCITS 361-2002"},
    {0x0027, u"ATA8-ACS version 3"},
    {0x0028, u"ATA8-ACS version 6"},
    {0x0029, u"ATA8-ACS version 4"},
    {0x0033, u"ATA8-ACS version 3e"},
    {0x0039, u"ATA8-ACS version 4c"},
    {0x0042, u"ATA8-ACS version 3f"},
    {0x0052, u"ATA8-ACS version 3b"},
    {0x0107, u"ATA8-ACS version 2d"},
    {0x0110, u"ACS-2 Revision 3"},
};

constexpr UINTN ModelFieldChars = sizeof(ata::IdentifyData::ModelNumber);
constexpr UINTN SerialFieldChars = sizeof(ata::IdentifyData::SerialNumber);
constexpr UINTN FirmwareFieldChars = sizeof(ata::IdentifyData::FirmwareRevision);

// A word 80 above this claims standards past ATA/ATAPI-5 in the old
// encoding; bit 8 is added so that ATA8-ACS shows as supported.
constexpr UINT16 MajorVersionWithoutAta8 = 38;
constexpr UINT16 MajorVersionAta8Bit = 0x100;

constexpr UINT16 RotationSolidState = 1;

// A text of Length characters (no terminator) within a field.
struct TextSpan {
  const CHAR16* Start;
  UINTN Length;
};

// An IDENTIFY string: two characters per word, the first in the high byte;
// each byte one character. Out holds Bytes + 1 characters.
VOID ConvertAtaString(const UINT8* Field, UINTN Bytes, CHAR16* Out) {
  for (UINTN I = 0; I < Bytes; ++I) Out[I] = Field[I ^ 1];
  Out[Bytes] = 0;
}

UINTN BoundedLength(const CHAR16* Text, UINTN Max) {
  UINTN Length = 0;
  while (Length < Max && Text[Length] != 0) ++Length;
  return Length;
}

// Appends Span to Out (Capacity characters with the terminator), cutting it
// when full; Used counts the characters written so far.
VOID Append(CHAR16* Out, UINTN Capacity, UINTN& Used, TextSpan Span) {
  for (UINTN I = 0; I < Span.Length && Used + 1 < Capacity; ++I) Out[Used++] = Span.Start[I];
  Out[Used] = 0;
}

VOID Append(CHAR16* Out, UINTN Capacity, UINTN& Used, const CHAR16* Text) {
  Append(Out, Capacity, Used, TextSpan{Text, BoundedLength(Text, Capacity)});
}

VOID CopySpan(CHAR16* Out, UINTN Capacity, TextSpan Span) {
  UINTN Used = 0;
  Append(Out, Capacity, Used, Span);
}

// Where the model field's words lie: the first space after the text's start,
// and whether the field holds a maker's name before the model.
struct ModelWords {
  const CHAR16* Text;
  UINTN Start;       // first character that is not a leading space
  UINTN Length;      // of the whole field
  UINTN FirstSpace;  // == Length when there is none
  BOOLEAN MakerFirst;
};

ModelWords SplitModel(const CHAR16* Text) {
  ModelWords Words{Text, 0, BoundedLength(Text, ModelFieldChars), 0, FALSE};
  // Right-justified fields start with spaces; the words start after them
  // (an all-blank field keeps the rules' answer for blanks).
  while (Words.Start < Words.Length && Text[Words.Start] == u' ') ++Words.Start;
  if (Words.Start == Words.Length) Words.Start = 0;
  Words.FirstSpace = Words.Start;
  while (Words.FirstSpace < Words.Length && Text[Words.FirstSpace] != u' ') ++Words.FirstSpace;
  // The end of the field counts as padding.
  const UINTN Next = Words.FirstSpace + 1;
  Words.MakerFirst = Words.FirstSpace < Words.Length && Next < Words.Length && Text[Next] != u' ';
  return Words;
}

TextSpan ModelOf(const ModelWords& W) {
  if (W.FirstSpace == W.Length) return {W.Text + W.Start, W.Length - W.Start};
  if (!W.MakerFirst) return {W.Text + W.Start, W.FirstSpace - W.Start};
  UINTN End = W.FirstSpace + 1;
  while (End < W.Length && W.Text[End] != u' ') ++End;
  return {W.Text + W.FirstSpace + 1, End - W.FirstSpace - 1};
}

// Model numbers that carry no maker's name start with the maker's prefix.
struct MakerPrefix {
  CHAR16 First, Second;
  const CHAR16* Manufacturer;
};
constexpr MakerPrefix MakerPrefixes[] = {
    {u'S', u'T', u"SEAGATE"},
    {u'W', u'D', u"WESTERN DIGITAL"},
    {u'H', u'T', u"HITACHI"},
};

TextSpan ManufacturerOf(const ModelWords& W) {
  if (W.FirstSpace == W.Length) return {W.Text + W.Start, W.Length - W.Start};
  if (W.MakerFirst) return {W.Text + W.Start, W.FirstSpace - W.Start};
  const CHAR16 First = W.Text[W.Start];
  const CHAR16 Second = W.Start + 1 < W.Length ? W.Text[W.Start + 1] : 0;
  for (const MakerPrefix& Prefix : MakerPrefixes)
    if (Prefix.First == First && Prefix.Second == Second)
      return {Prefix.Manufacturer, BoundedLength(Prefix.Manufacturer, ManufacturerChars)};
  const CHAR16* Generic = u"Generic Vendor";
  return {Generic, BoundedLength(Generic, ManufacturerChars)};
}

VOID ParseSectorSizes(const ata::IdentifyData& Id, StorageDeviceInfo* Info) {
  constexpr UINT16 ValidMask = 0xC000, Valid = 0x4000;
  constexpr UINT16 SeveralPerPhysical = 1 << 13, LogicalSizeGiven = 1 << 12;
  UINT32 Logical = ata::SectorBytes;
  UINT32 PerPhysical = 1;
  const UINT16 Word = Id.SectorSizes;
  if ((Word & ValidMask) == Valid) {
    if ((Word & SeveralPerPhysical) != 0) PerPhysical = 1u << (Word & 0x0F);
    const UINT32 LogicalWords =
        static_cast<UINT32>(Id.LogicalSectorWords[0]) | static_cast<UINT32>(Id.LogicalSectorWords[1]) << 16;
    // A drive that sets the bit but reports no size keeps 512-byte sectors.
    if ((Word & LogicalSizeGiven) != 0 && LogicalWords != 0) Logical = LogicalWords * 2;
  }
  Info->LogicalSectorSize = Logical;
  Info->PhysicalSectorSize = Logical * PerPhysical;
}

}  // namespace

const CHAR16* GetStandardVersionText(UINT16 MinorVersion) {
  if (MinorVersion == 0x0000 || MinorVersion == 0xFFFF) return u"Minor version is not reported";
  if (MinorVersion <= 0x000C) return u"Obsolete";
  for (const MinorVersionText& Entry : MinorVersionTexts)
    if (Entry.Word == MinorVersion) return Entry.Text;
  return u"Reserved";
}

BOOLEAN SerialNumberIsPrintable(const UINT8* Identify) {
  const UINT8* Serial = Identify + __builtin_offsetof(ata::IdentifyData, SerialNumber);
  for (UINTN I = 0; I < SerialFieldChars; ++I)
    if (Serial[I] < 0x20 || Serial[I] > 0x7E) return FALSE;
  return TRUE;
}

VOID ParseIdentifyData(const UINT8* Identify, StorageDeviceInfo* Info) {
  ata::IdentifyData Id;
  __builtin_memcpy(&Id, Identify, sizeof(Id));

  CHAR16 ModelField[ModelFieldChars + 1];
  ConvertAtaString(Id.ModelNumber, ModelFieldChars, ModelField);
  const ModelWords Words = SplitModel(ModelField);
  CopySpan(Info->Model, ModelChars, ModelOf(Words));
  CopySpan(Info->Manufacturer, ManufacturerChars, ManufacturerOf(Words));

  CHAR16 SerialField[SerialFieldChars + 1];
  ConvertAtaString(Id.SerialNumber, SerialFieldChars, SerialField);
  UINTN SerialStart = 0;
  while (SerialField[SerialStart] == u' ') ++SerialStart;
  CopySpan(Info->SerialNumber, SerialNumberChars,
           {SerialField + SerialStart, BoundedLength(SerialField + SerialStart, SerialFieldChars)});

  CHAR16 FirmwareField[FirmwareFieldChars + 1];
  ConvertAtaString(Id.FirmwareRevision, FirmwareFieldChars, FirmwareField);
  CopySpan(Info->FirmwareRevision, FirmwareRevisionChars,
           {FirmwareField, BoundedLength(FirmwareField, FirmwareFieldChars)});

  UINTN Used = 0;
  Append(Info->Uid, UidChars, Used, Info->Manufacturer);
  Append(Info->Uid, UidChars, Used, u"-");
  Append(Info->Uid, UidChars, Used, Info->Model);
  Append(Info->Uid, UidChars, Used, u"-");
  Append(Info->Uid, UidChars, Used, Info->SerialNumber);

  constexpr UINTN DisplayModelChars = 29;
  constexpr UINT16 PacketDevice = 1 << 15;
  Used = 0;
  Append(Info->DisplayName, DisplayNameChars, Used, {Info->Model, BoundedLength(Info->Model, DisplayModelChars)});
  Append(Info->DisplayName, DisplayNameChars, Used,
         (Id.GeneralConfiguration & PacketDevice) != 0 ? u" ATAPI Device" : u" ATA Device");
  CopySpan(Info->DeviceType, DeviceTypeChars, {u"Internal HDD", 12});

  ParseSectorSizes(Id, Info);
  constexpr UINT16 Supports48BitAddresses = 1 << 10;
  UINT64 Sectors = 0;
  if ((Id.CommandSetSupported2 & Supports48BitAddresses) != 0)
    for (UINTN W = 4; W-- > 0;) Sectors = Sectors << 16 | Id.MaxLba48[W];
  Info->TotalSectors = Sectors;
  Info->SizeBytes = Sectors * Info->LogicalSectorSize;
  Info->CacheBytes = static_cast<UINT32>(Id.BufferSize) * Info->LogicalSectorSize;

  Info->MajorVersion = Id.MajorVersion > MajorVersionWithoutAta8
                           ? static_cast<UINT16>(Id.MajorVersion | MajorVersionAta8Bit)
                           : Id.MajorVersion;
  Info->MinorVersion = Id.MinorVersion;
  Info->StandardVersionText = GetStandardVersionText(Id.MinorVersion);
  Info->RotationRate = Id.NominalRotationRate;
  Info->NonRotating = Id.NominalRotationRate == RotationSolidState ? 1 : 0;
  Info->Lba48 = Sectors > ata::MaxLba28 ? 1 : 0;
  Info->SmartSupported = Id.CommandSetSupported & 1;
  Info->SelfTestSupported = (Id.CommandSetExtension >> 1) & 1;
  Info->SmartEnabled = Id.CommandSetEnabled & 1;
}

}  // namespace tarvik
