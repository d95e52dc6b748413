#include "widgets/devices/DeviceSession.h"

#include "widgets/devices/DeviceParamLink.h"
#include "widgets/devices/DialogLxBusImport.h"
#include "widgets/devices/LxBusTableModel.h"
#include "widgets/layout/Prompter.h"

#include <QDir>

namespace {
QString listItem(const QString &text)
{
    return QStringLiteral("<li>%1</li>").arg(text.toHtmlEscaped());
}

QString listItems(const QStringList &texts)
{
    QString items;
    for (const QString &t : texts)
        items += listItem(t);
    return items;
}
} // namespace

DeviceSession::DeviceSession(const Device &device, DeviceParamLink *link, Prompter *prompter, QWidget *window)
    : QObject(window), m_device(device), m_link(link), m_prompter(prompter), m_window(window)
{
    m_model = new LxBusTableModel(this);
    m_chooser = [](QWidget *parent, const QVector<DeviceSettingsFile::DiffRow> &rows,
                   QVector<DeviceSettingsFile::DiffRow> *chosen) {
        DialogLxBusImport dialog(rows, parent);
        if (dialog.exec() != QDialog::Accepted)
            return false;
        *chosen = dialog.chosen();
        return true;
    };
    connect(m_model, &LxBusTableModel::writeRequested, this, [this](const DevParam &p) { write({p}); });
    if (m_link) {
        connect(m_link, &DeviceParamLink::valuesLoaded, this, &DeviceSession::valuesArrived);
        connect(m_link, &DeviceParamLink::writeFinished, this, &DeviceSession::writeFinished);
        connect(m_link, &DeviceParamLink::error, this, &DeviceSession::linkError);
    }
}

DeviceSession::~DeviceSession()
{
    // The engine stops reading a device nobody is looking at. Its answers no longer concern this session,
    // which is going (and with it, perhaps, the window it reports to).
    if (m_link)
        disconnect(m_link, nullptr, this, nullptr);
    if (m_started && m_link)
        m_link->setActiveDevice(DeviceSettings());
}

Prompter *DeviceSession::prompter() const
{
    return m_prompter ? m_prompter : Prompter::standard();
}

const DeviceDefinition &DeviceSession::definition() const
{
    return m_model->definition();
}

bool DeviceSession::start(const QString &definitionsPath)
{
    DeviceDefinitions definitions;
    QString error;
    if (definitionsPath.isEmpty()) {
        error = DeviceDefinitions::loadErrorMessage(tr("Devices/Devices.bin was not found"));
    } else if (!definitions.load(definitionsPath, &error)) {
        // load() words the whole message.
    } else {
        return start(definitions);
    }
    prompter()->error(m_window, tr("Error"), error.toHtmlEscaped());
    return false;
}

bool DeviceSession::start(const DeviceDefinitions &definitions)
{
    const DeviceDefinition *definition = definitions.find(m_device);
    if (!definition) {
        prompter()->error(
            m_window, tr("Error"),
            DeviceDefinitions::loadErrorMessage(
                tr("it describes no device of hardware %1 (%2)").arg(m_device.hardware).arg(m_device.name))
                .toHtmlEscaped());
        return false;
    }
    if (definition->needsNewerFirmware(m_device.firmwareMajor(), m_device.firmwareMinor())) {
        prompter()->information(
            m_window, tr("Device information"),
            tr("Please update your device <ul><li>%1 Version %2.%3 <i>(Required %4.%5)</i></li></ul>")
                .arg(m_device.name.toHtmlEscaped())
                .arg(m_device.firmwareMajor())
                .arg(m_device.firmwareMinor())
                .arg(definition->firmwareMajor)
                .arg(definition->firmwareMinor));
    }
    m_model->setDefinition(m_device.identifier, *definition);
    m_started = true;
    if (m_link)
        m_link->setActiveDevice(m_model->settings());
    return true;
}

void DeviceSession::read()
{
    if (m_started && m_link)
        m_link->read();
}

void DeviceSession::write(const DevParamVector &params)
{
    if (m_started && m_link && !params.isEmpty())
        m_link->write(params);
}

bool DeviceSession::command(int address, int value, int size, int flags)
{
    return m_started && m_link && m_link->command(address, value, size, flags);
}

void DeviceSession::valuesArrived(const DevParamVector &params)
{
    if (!m_started)
        return;
    m_model->setValues(params);
    emit valuesLoaded(m_model->settings().loadedPercent());
}

QString DeviceSession::refusalText(const DevParam &param) const
{
    const DeviceParameter *d = m_model->parameterAt(m_model->settings().indexOf(param.address));
    const QString name = d && !d->name.isEmpty() ? d->name : tr("Address %1").arg(param.address);
    if (!param.loaded)
        return tr("%1: could not be read back").arg(name);
    if (!d)
        return tr("%1: the device did not take the value").arg(name);
    DevParam sent = param;
    sent.value = param.sent;
    return tr("%1: the device holds %2, not %3")
        .arg(name, DeviceSettingsFile::valueText(*d, DeviceSettingsFile::rawOf(param)),
             DeviceSettingsFile::valueText(*d, DeviceSettingsFile::rawOf(sent)));
}

void DeviceSession::writeFinished(const DevParamVector &params)
{
    if (!m_started)
        return;
    const DevParamVector refused = m_model->applyWriteResult(params);
    emit valuesLoaded(m_model->settings().loadedPercent());
    QStringList editRefused;
    for (const DevParam &p : refused) {
        const QString why = refusalText(p);
        if (m_importPending.contains(p.address))
            m_importRefused << why;
        else
            editRefused << why;
    }
    bool importEnded = false;
    for (const DevParam &p : params)
        importEnded |= m_importPending.remove(p.address) && m_importPending.isEmpty();
    if (!editRefused.isEmpty())
        emit writeRefused(editRefused);
    if (!importEnded)
        return;
    if (m_importRefused.isEmpty()) {
        emit statusChanged(tr("%n setting(s) written to the device.", nullptr, m_importWritten));
        return;
    }
    emit statusChanged(tr("%n setting(s) were not taken by the device.", nullptr, m_importRefused.size()));
    prompter()->warning(m_window, tr("Device error"),
                        tr("<b>The device did not take every imported setting:</b><ul>%1</ul>")
                            .arg(listItems(m_importRefused)));
    m_importRefused.clear();
}

void DeviceSession::linkError(const QString &text)
{
    if (!m_started)
        return;
    // A refused write changes nothing: the import that asked for it is over. What the device holds is read
    // again, so nothing on screen claims a value it does not have.
    m_importPending.clear();
    m_importRefused.clear();
    emit failed(text);
    read();
}

bool DeviceSession::exportSettings()
{
    if (!m_started)
        return false;
    const QString name = m_device.name.isEmpty() ? QStringLiteral("device") : m_device.name;
    const QString path =
        prompter()->saveFile(m_window, tr("Open LX Bus for export"),
                             QDir::home().filePath(name + QStringLiteral(".jsn")), tr(kFileFilter));
    return !path.isEmpty() && exportTo(path);
}

bool DeviceSession::exportTo(const QString &path)
{
    QString error;
    bool written = false;
    const DeviceSettingsFile file =
        DeviceSettingsFile::build(m_device, m_model->definition(), m_model->params());
    if (file.parameters.isEmpty() && !m_model->params().isEmpty())
        error = tr("No value has been read from the device yet.");
    else
        written = file.save(path, &error);
    if (!written) {
        prompter()->error(
            m_window, tr("Error"),
            tr("<b>Unable to export device<br> configuration to a file:</b><ul><li>%1</li></ul>")
                .arg(error.toHtmlEscaped()));
        return false;
    }
    emit statusChanged(tr("Settings saved to %1").arg(QDir::toNativeSeparators(path)));
    return true;
}

bool DeviceSession::importSettings()
{
    if (!m_started)
        return false;
    const QString path =
        prompter()->openFile(m_window, tr("Open LX Bus exported data"), QDir::homePath(), tr(kFileFilter));
    return !path.isEmpty() && importFrom(path);
}

bool DeviceSession::importFrom(const QString &path)
{
    DeviceSettingsFile file;
    QVector<DeviceSettingsFile::DiffRow> rows;
    QString error;
    if (!m_importPending.isEmpty())
        error = tr("The previous import is still being written.");
    else if (DeviceSettingsFile::load(path, &file, &error))
        DeviceSettingsFile::diff(m_model->definition(), m_model->params(), file, &rows, &error);
    if (!error.isEmpty()) {
        prompter()->error(
            m_window, tr("Error"),
            tr("<b>Unable to import device<br> configuration from a file:</b><ul><li>%1</li></ul>")
                .arg(error.toHtmlEscaped()));
        return false;
    }
    QVector<DeviceSettingsFile::DiffRow> chosen;
    if (!m_chooser || !m_chooser(m_window, rows, &chosen))
        return false;
    const DevParamVector params = DeviceSettingsFile::toWrite(chosen, m_model->params());
    if (params.isEmpty()) {
        emit statusChanged(tr("Nothing to write."));
        return true;
    }
    m_importRefused.clear();
    m_importWritten = params.size();
    for (const DevParam &p : params)
        m_importPending.insert(p.address);
    emit statusChanged(tr("Writing %n setting(s)...", nullptr, params.size()));
    write(params);
    return true;
}
