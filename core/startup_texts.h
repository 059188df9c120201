// The fixed texts of start-up, in one table: the installers' Portuguese
// messages (a service's name or a status filled in) and the entry's English
// lines that follow a core service's failure. A test module's own messages
// are data in its descriptor.
#pragma once

#include "efi/efi.h"

namespace tarvik::startup_text {

// Written directly to the console: without the shared services there is no Print.
inline constexpr CHAR16 SharedServicesMissing[] = u"Falha ao carregar Diag Common Protocol.\n\r";
// Formats taking the service's name and the status.
inline constexpr CHAR16 RecordAllocationFailed[] = u"Falha ao alocar memoria para %s: %r\n";
inline constexpr CHAR16 PreparationFailed[] = u"Falha ao iniciar estruturas internas de %s: %r\n";
inline constexpr CHAR16 InstallationFailed[] = u"Falha ao instalar %s: %r\n";
// The shared services' own failure, with the status text.
inline constexpr CHAR16 SharedServicesFailed[] = u"ERROR: %s\n";
// A test module finds no registry to join.
inline constexpr CHAR16 TestRegistryMissing[] = u"Test collection protocol not exists\n";

// The entry's line after each core service's failure.
inline constexpr CHAR16 CommonFailed[] = u"Failed to install common protocols...\n";
inline constexpr CHAR16 ErrorCodeFailed[] = u"Failed to install errorcode protocol...\n";
inline constexpr CHAR16 SmBiosFailed[] = u"Failed to install SmBios protocols...\n";
inline constexpr CHAR16 LanguageFailed[] = u"Failed to install language protocols...\n";
inline constexpr CHAR16 TestCollectionFailed[] = u"Failed to install TestCollection protocols...\n";
inline constexpr CHAR16 LogFailed[] = u"Failed to install Log protocols...\n";

}  // namespace tarvik::startup_text
