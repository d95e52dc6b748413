#pragma once

#include <QString>
#include <QtGlobal>

#include <xlsxwriter.h>

// The libxlsxwriter functions the workbook writer calls. Normally those of the linked library. But
// libxlsxwriter zips through the system's minizip by plain symbol names, and QuaZip (linked into the
// studio for transmitter backups) exports a minizip of its own under the same names with other
// signatures: in such a process the linked library's zip calls land in QuaZip's copy and crash. There a
// private copy of libxlsxwriter, with its own minizip, is loaded into a link namespace of its own.
class XlsxLibrary
{
public:
    // Resolved on first use; the choice holds for the life of the process, as do the loaded libraries.
    static const XlsxLibrary &get();

    // False when no safe copy could be had; error() says why and the functions must not be called.
    bool isUsable() const { return m_usable; }
    bool isPrivateCopy() const { return m_private; }
    QString error() const { return m_error; }

    decltype(&::workbook_new_opt) workbookNewOpt = &::workbook_new_opt;
    decltype(&::workbook_add_worksheet) workbookAddWorksheet = &::workbook_add_worksheet;
    decltype(&::workbook_add_format) workbookAddFormat = &::workbook_add_format;
    decltype(&::workbook_close) workbookClose = &::workbook_close;
    decltype(&::lxw_workbook_free) workbookFree = &::lxw_workbook_free;
    decltype(&::format_set_bold) formatSetBold = &::format_set_bold;
    decltype(&::format_set_bottom) formatSetBottom = &::format_set_bottom;
    decltype(&::format_set_num_format) formatSetNumFormat = &::format_set_num_format;
    decltype(&::worksheet_set_column) worksheetSetColumn = &::worksheet_set_column;
    decltype(&::worksheet_freeze_panes) worksheetFreezePanes = &::worksheet_freeze_panes;
    decltype(&::worksheet_write_string) worksheetWriteString = &::worksheet_write_string;
    decltype(&::worksheet_write_number) worksheetWriteNumber = &::worksheet_write_number;
    decltype(&::lxw_strerror) strError = &::lxw_strerror;

private:
    XlsxLibrary();
#ifdef Q_OS_LINUX
    bool loadPrivateCopy(const char *path);
#endif

    bool m_usable = true;
    bool m_private = false;
    QString m_error;
};
