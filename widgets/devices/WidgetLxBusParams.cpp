#include "widgets/devices/WidgetLxBusParams.h"

#include "widgets/devices/DeviceParamLink.h"
#include "widgets/devices/DialogLxBusImport.h"
#include "widgets/devices/LxBusTableModel.h"
#include "widgets/devices/LxBusValueDelegate.h"
#include "widgets/layout/Prompter.h"

#include <QDir>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QIcon>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QTableView>
#include <QVBoxLayout>

namespace {

QString listItem(const QString &text)
{
    return QStringLiteral("<li>%1</li>").arg(text.toHtmlEscaped());
}

} // namespace

WidgetLxBusParams::WidgetLxBusParams(const Device &device, DeviceParamLink *link, Prompter *prompter,
                                     QWidget *parent)
    : QDialog(parent), m_device(device), m_link(link), m_prompter(prompter)
{
    setWindowTitle(tr("LX Bus Device Properties: %1").arg(device.name));
    setWindowFlag(Qt::WindowContextHelpButtonHint, false);
    setWindowFlag(Qt::WindowMaximizeButtonHint, true);
    m_model = new LxBusTableModel(this);
    m_table = new QTableView(this);
    m_table->setModel(m_model);
    m_table->setItemDelegateForColumn(LxBusTableModel::ValueColumn, new LxBusValueDelegate(m_table));
    m_table->setSelectionBehavior(QAbstractItemView::SelectRows);
    m_table->setSelectionMode(QAbstractItemView::SingleSelection);
    m_table->setEditTriggers(QAbstractItemView::DoubleClicked | QAbstractItemView::EditKeyPressed |
                             QAbstractItemView::AnyKeyPressed);
    m_table->verticalHeader()->hide();
    m_table->horizontalHeader()->setStretchLastSection(false);
    m_table->horizontalHeader()->setSectionResizeMode(LxBusTableModel::DescriptionColumn,
                                                      QHeaderView::Stretch);

    m_progress = new QProgressBar(this);
    m_progress->setRange(0, 100);
    m_progress->setValue(0);
    m_progress->setFormat(tr("%p% read"));
    m_progress->setMinimumWidth(120);
    m_status = new QLabel(this);
    m_exportButton = new QPushButton(QIcon(QStringLiteral(":/Icons/Program/Resources/export16x16.png")),
                                     tr("Export settings to file..."), this);
    m_importButton = new QPushButton(QIcon(QStringLiteral(":/Icons/Program/Resources/import16x16.png")),
                                     tr("Import settings from file..."), this);
    // The buttons must not take Enter from the table's editors.
    m_exportButton->setAutoDefault(false);
    m_importButton->setAutoDefault(false);
    connect(m_exportButton, &QPushButton::clicked, this, [this] { exportSettings(); });
    connect(m_importButton, &QPushButton::clicked, this, [this] { importSettings(); });

    auto *bar = new QHBoxLayout;
    bar->addWidget(m_exportButton);
    bar->addWidget(m_importButton);
    bar->addWidget(m_status, 1);
    bar->addWidget(m_progress);
    auto *layout = new QVBoxLayout(this);
    layout->addWidget(m_table);
    layout->addLayout(bar);
    resize(760, 520);

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
        connect(m_link, &DeviceParamLink::valuesLoaded, this, &WidgetLxBusParams::valuesLoaded);
        connect(m_link, &DeviceParamLink::writeFinished, this, &WidgetLxBusParams::writeFinished);
        connect(m_link, &DeviceParamLink::error, this, &WidgetLxBusParams::linkError);
    }
}

WidgetLxBusParams::~WidgetLxBusParams()
{
    // The engine stops reading a device nobody is looking at.
    if (m_started && m_link)
        m_link->setActiveDevice(DeviceSettings());
}

Prompter *WidgetLxBusParams::prompter() const
{
    return m_prompter ? m_prompter : Prompter::standard();
}

bool WidgetLxBusParams::start(const QString &definitionsPath)
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
    prompter()->error(this, tr("Error"), error.toHtmlEscaped());
    return false;
}

bool WidgetLxBusParams::start(const DeviceDefinitions &definitions)
{
    const DeviceDefinition *definition = definitions.find(m_device);
    if (!definition) {
        prompter()->error(
            this, tr("Error"),
            DeviceDefinitions::loadErrorMessage(
                tr("it describes no device of hardware %1 (%2)").arg(m_device.hardware).arg(m_device.name))
                .toHtmlEscaped());
        return false;
    }
    if (definition->needsNewerFirmware(m_device.firmwareMajor(), m_device.firmwareMinor())) {
        prompter()->information(
            this, tr("Device information"),
            tr("Please update your device <ul><li>%1 Version %2.%3 <i>(Required %4.%5)</i></li></ul>")
                .arg(m_device.name.toHtmlEscaped())
                .arg(m_device.firmwareMajor())
                .arg(m_device.firmwareMinor())
                .arg(definition->firmwareMajor)
                .arg(definition->firmwareMinor));
    }
    m_model->setDefinition(m_device.identifier, *definition);
    m_table->resizeColumnToContents(LxBusTableModel::PropertiesColumn);
    m_progress->setValue(m_model->params().isEmpty() ? 100 : 0);
    m_started = true;
    if (m_link)
        m_link->setActiveDevice(m_model->settings());
    return true;
}

void WidgetLxBusParams::valuesLoaded(const DevParamVector &params)
{
    if (!m_started)
        return;
    m_model->setValues(params);
    DeviceSettings progress;
    progress.params = m_model->params();
    m_progress->setValue(progress.loadedPercent());
}

void WidgetLxBusParams::write(const DevParamVector &params)
{
    if (m_link && !params.isEmpty())
        m_link->write(params);
}

QString WidgetLxBusParams::paramName(const DevParam &param) const
{
    const int row = m_model->settings().indexOf(param.address);
    const DeviceParameter *d = m_model->parameterAt(row);
    return d && !d->name.isEmpty() ? d->name : tr("Address %1").arg(param.address);
}

QString WidgetLxBusParams::refusalText(const DevParam &param) const
{
    if (!param.loaded)
        return tr("%1: could not be read back").arg(paramName(param));
    const DeviceParameter *d = m_model->parameterAt(m_model->settings().indexOf(param.address));
    if (!d)
        return tr("%1: the device did not take the value").arg(paramName(param));
    DevParam sent = param;
    sent.value = param.sent;
    return tr("%1: the device holds %2, not %3")
        .arg(paramName(param), DeviceSettingsFile::valueText(*d, DeviceSettingsFile::rawOf(param)),
             DeviceSettingsFile::valueText(*d, DeviceSettingsFile::rawOf(sent)));
}

void WidgetLxBusParams::writeFinished(const DevParamVector &params)
{
    if (!m_started)
        return;
    const DevParamVector refused = m_model->applyWriteResult(params);
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
    if (!editRefused.isEmpty()) {
        QString items;
        for (const QString &w : editRefused)
            items += listItem(w);
        prompter()->warning(this, tr("Device error"),
                            tr("<b>Unable to write to the device:</b><ul>%1</ul>").arg(items));
    }
    if (!importEnded)
        return;
    if (m_importRefused.isEmpty()) {
        m_status->setText(tr("%n setting(s) written to the device.", nullptr, m_importWritten));
        return;
    }
    QString items;
    for (const QString &w : m_importRefused)
        items += listItem(w);
    m_status->setText(tr("%n setting(s) were not taken by the device.", nullptr, m_importRefused.size()));
    prompter()->warning(this, tr("Device error"),
                        tr("<b>The device did not take every imported setting:</b><ul>%1</ul>").arg(items));
    m_importRefused.clear();
}

void WidgetLxBusParams::linkError(const QString &text)
{
    if (!m_started)
        return;
    // A refused write changes nothing: the import that asked for it is over.
    m_importPending.clear();
    m_importRefused.clear();
    prompter()->warning(this, tr("Device error"),
                        tr("<b>Unable to write to the device:</b><ul>%1</ul>").arg(listItem(text)));
    if (m_link)
        m_link->read();
}

bool WidgetLxBusParams::exportSettings()
{
    if (!m_started)
        return false;
    const QString name = m_device.name.isEmpty() ? QStringLiteral("device") : m_device.name;
    const QString path =
        prompter()->saveFile(this, tr("Open LX Bus for export"),
                             QDir::home().filePath(name + QStringLiteral(".jsn")), tr(kFileFilter));
    return !path.isEmpty() && exportTo(path);
}

bool WidgetLxBusParams::exportTo(const QString &path)
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
            this, tr("Error"),
            tr("<b>Unable to export device<br> configuration to a file:</b><ul><li>%1</li></ul>")
                .arg(error.toHtmlEscaped()));
        return false;
    }
    m_status->setText(tr("Settings saved to %1").arg(QDir::toNativeSeparators(path)));
    return true;
}

bool WidgetLxBusParams::importSettings()
{
    if (!m_started)
        return false;
    const QString path =
        prompter()->openFile(this, tr("Open LX Bus exported data"), QDir::homePath(), tr(kFileFilter));
    return !path.isEmpty() && importFrom(path);
}

bool WidgetLxBusParams::importFrom(const QString &path)
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
            this, tr("Error"),
            tr("<b>Unable to import device<br> configuration from a file:</b><ul><li>%1</li></ul>")
                .arg(error.toHtmlEscaped()));
        return false;
    }
    QVector<DeviceSettingsFile::DiffRow> chosen;
    if (!m_chooser || !m_chooser(this, rows, &chosen))
        return false;
    const DevParamVector params = DeviceSettingsFile::toWrite(chosen, m_model->params());
    if (params.isEmpty()) {
        m_status->setText(tr("Nothing to write."));
        return true;
    }
    m_importRefused.clear();
    m_importWritten = params.size();
    for (const DevParam &p : params)
        m_importPending.insert(p.address);
    m_status->setText(tr("Writing %n setting(s)...", nullptr, params.size()));
    write(params);
    return true;
}
