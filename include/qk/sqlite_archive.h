// The archive companion over SQLite (library qk_sqlite_archive): registers itself as
// "QK_Db_Access.clsDbAccess". Initialize("Archivi.mdb") opens the file named by the setting
// "Archive" of section "Appl", otherwise "Archivi.sqlite" in the installation folder; it
// implements the component's members and the tools' (qk/archive_tools.h). docs/archive.md.
#pragma once

namespace qk {

// Registers (or re-registers) the SQLite archive under "QK_Db_Access.clsDbAccess".
void register_sqlite_archive();

}  // namespace qk
