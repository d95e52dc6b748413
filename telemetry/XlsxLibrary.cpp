#include "telemetry/XlsxLibrary.h"

#include <QtGlobal>

#ifdef Q_OS_LINUX
#include <dlfcn.h>

namespace {
// What libxlsxwriter calls in minizip, and what minizip calls in itself on the way.
const char *const kZipNames[] = {"zipOpen",
                                 "zipOpen3",
                                 "zipOpenNewFileInZip4_64",
                                 "zipWriteInFileInZip",
                                 "zipCloseFileInZip",
                                 "zipCloseFileInZipRaw64",
                                 "zipClose"};

// True when a zip function the process resolves by name comes from neither libxlsxwriter nor the
// minizip it was built against.
bool zipNamesTaken(const char *libraryPath)
{
    void *minizip = dlopen("libminizip.so.1", RTLD_NOW | RTLD_NOLOAD);
    bool taken = false;
    for (const char *name : kZipNames) {
        void *global = dlsym(RTLD_DEFAULT, name);
        Dl_info where{};
        if (!global || !dladdr(global, &where) || !where.dli_fname)
            continue;
        const bool ours =
            (minizip && global == dlsym(minizip, name)) || qstrcmp(where.dli_fname, libraryPath) == 0;
        if (!ours) {
            taken = true;
            break;
        }
    }
    if (minizip)
        dlclose(minizip);
    return taken;
}

template <typename F> bool resolve(void *handle, const char *name, F *out)
{
    void *symbol = dlsym(handle, name);
    if (symbol)
        *out = reinterpret_cast<F>(symbol);
    return symbol != nullptr;
}
} // namespace

#endif

const XlsxLibrary &XlsxLibrary::get()
{
    static const XlsxLibrary library;
    return library;
}

// Elsewhere each library binds its own imports, and the linked one is always safe.
XlsxLibrary::XlsxLibrary()
{
#ifdef Q_OS_LINUX
    Dl_info self{};
    if (!dladdr(reinterpret_cast<void *>(&::workbook_new_opt), &self) || !self.dli_fname)
        return;
    if (!zipNamesTaken(self.dli_fname))
        return;
    if (!loadPrivateCopy(self.dli_fname))
        m_usable = false;
#endif
}

#ifdef Q_OS_LINUX
bool XlsxLibrary::loadPrivateCopy(const char *path)
{
    void *handle = dlmopen(LM_ID_NEWLM, path, RTLD_NOW | RTLD_LOCAL);
    if (!handle) {
        m_error = QString::fromLocal8Bit(dlerror());
        return false;
    }
    // All or nothing: functions of two copies would mix their workbooks.
    XlsxLibrary copy(*this);
    const bool complete = resolve(handle, "workbook_new_opt", &copy.workbookNewOpt) &&
                          resolve(handle, "workbook_add_worksheet", &copy.workbookAddWorksheet) &&
                          resolve(handle, "workbook_add_format", &copy.workbookAddFormat) &&
                          resolve(handle, "workbook_close", &copy.workbookClose) &&
                          resolve(handle, "lxw_workbook_free", &copy.workbookFree) &&
                          resolve(handle, "format_set_bold", &copy.formatSetBold) &&
                          resolve(handle, "format_set_bottom", &copy.formatSetBottom) &&
                          resolve(handle, "format_set_num_format", &copy.formatSetNumFormat) &&
                          resolve(handle, "worksheet_set_column", &copy.worksheetSetColumn) &&
                          resolve(handle, "worksheet_freeze_panes", &copy.worksheetFreezePanes) &&
                          resolve(handle, "worksheet_write_string", &copy.worksheetWriteString) &&
                          resolve(handle, "worksheet_write_number", &copy.worksheetWriteNumber) &&
                          resolve(handle, "lxw_strerror", &copy.strError);
    if (!complete) {
        m_error = QString::fromLocal8Bit(dlerror());
        return false;
    }
    *this = copy;
    m_private = true;
    return true;
}
#endif
