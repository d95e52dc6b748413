#include "tools/ui/DialogUpdater.h"

#include "link/SerialPortWrapper.h"

#include <QDialogButtonBox>
#include <QFile>
#include <QFileDialog>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QMessageBox>
#include <QProgressBar>
#include <QPushButton>
#include <QSet>
#include <QSplitter>
#include <QTextBrowser>
#include <QTreeWidget>
#include <QVBoxLayout>

namespace {
enum Role
{
    HwRole = Qt::UserRole,
    VariantRole,
    VersionRole,
};

constexpr int kDeviceIconHeight = 32;
const char kDeviceIcon[] = ":/Icons/Program/Resources/dev_explorer.png";

QString notesList(const QStringList &notes)
{
    QString html = QStringLiteral("<ul>");
    for (const QString &note : notes) {
        for (const QString &line : note.split(QLatin1Char('\n'), Qt::SkipEmptyParts))
            html += QStringLiteral("<li>%1</li>").arg(line.toHtmlEscaped());
    }
    return html + QStringLiteral("</ul>");
}
} // namespace

DialogUpdater::DialogUpdater(SerialPortWrapper *link, const QString &databasePath, QWidget *parent)
    : QDialog(parent), m_link(link), m_databasePath(databasePath), m_deviceLine(new QLabel(this)),
      m_list(new QTreeWidget(this)), m_description(new QTextBrowser(this)), m_status(new QLabel(this)),
      m_progress(new QProgressBar(this)), m_detect(new QPushButton(tr("Detect device"), this)),
      m_open(new QPushButton(tr("Open update file"), this)), m_update(new QPushButton(tr("Update"), this))
{
    setWindowTitle(tr("Device Updater"));
    m_list->setHeaderLabels({tr("Name"), tr("Version")});
    m_list->header()->setSectionResizeMode(0, QHeaderView::Stretch);
    m_description->setOpenExternalLinks(false);
    m_progress->setRange(0, 100);
    m_progress->setValue(0);
    m_deviceLine->setTextFormat(Qt::RichText);
    m_status->setWordWrap(true);

    auto *splitter = new QSplitter(this);
    splitter->addWidget(m_list);
    splitter->addWidget(m_description);
    splitter->setStretchFactor(1, 2);
    auto *buttons = new QHBoxLayout;
    buttons->addWidget(m_detect);
    buttons->addWidget(m_open);
    buttons->addStretch();
    buttons->addWidget(m_update);
    auto *close = new QDialogButtonBox(QDialogButtonBox::Close, this);
    auto *layout = new QVBoxLayout(this);
    layout->addWidget(m_deviceLine);
    layout->addWidget(splitter, 1);
    layout->addWidget(m_status);
    layout->addWidget(m_progress);
    layout->addLayout(buttons);
    layout->addWidget(close);
    resize(760, 480);

    connect(close, &QDialogButtonBox::rejected, this, &QDialog::reject);
    connect(m_list, &QTreeWidget::currentItemChanged, this, [this] {
        m_customFile.clear();
        showSelected();
    });
    connect(m_detect, &QPushButton::clicked, this, &DialogUpdater::requestUpdateInfo);
    connect(m_open, &QPushButton::clicked, this, &DialogUpdater::chooseCustomFile);
    connect(m_update, &QPushButton::clicked, this, &DialogUpdater::startUpdate);

    if (m_link) {
        m_updater = std::make_unique<DeviceUpdater>(m_link);
        connect(m_updater.get(), &DeviceUpdater::updatingStatusChanged, this, &DialogUpdater::onStatus);
        connect(m_updater.get(), &DeviceUpdater::percentageChanged, m_progress, &QProgressBar::setValue);
        connect(m_updater.get(), &DeviceUpdater::finished, this, &DialogUpdater::onFinished);
        connect(m_link, &SerialPortWrapper::portOpenedStatus, this, [this](bool open) {
            if (open)
                return;
            m_haveDevice = false;
            m_deviceLine->clear();
            setStatus(tr("Serial port closed"));
            setBusy(m_busy);
        });
    }
    m_confirm = [this](const QString &question) {
        return QMessageBox::question(this, windowTitle(), question, QMessageBox::Yes | QMessageBox::No,
                                     QMessageBox::No) == QMessageBox::Yes;
    };
    loadDatabase();
    setBusy(false);
}

DialogUpdater::~DialogUpdater() = default;

void DialogUpdater::reject()
{
    if (m_busy || (m_updater && m_updater->isRunning())) {
        setStatus(tr("Please wait until the update has finished."));
        return;
    }
    QDialog::reject();
}

QString DialogUpdater::styled(const QString &body) const
{
    QString css;
    QFile file(QStringLiteral(":/appsManagerHtml.css"));
    if (file.open(QIODevice::ReadOnly))
        css = QString::fromUtf8(file.readAll());
    css += QStringLiteral("li { margin-bottom: 0.3em; }");
    return QStringLiteral("<html><head><style>%1</style></head><body>%2</body></html>").arg(css, body);
}

void DialogUpdater::loadDatabase()
{
    m_list->clear();
    m_databaseOpen = m_database.open(m_databasePath);
    if (!m_databaseOpen) {
        m_description->setHtml(styled(m_database.lastError().toHtmlEscaped()));
        return;
    }
    // One row per device and variant (the newest firmware), every version of it below.
    QSet<int> listed;
    for (const FirmwareDatabase::Overview &o : m_database.overview()) {
        auto *top = new QTreeWidgetItem(m_list);
        top->setText(0, o.name);
        top->setText(1, BootLoaderProtocol::versionText(quint16(o.version)));
        top->setData(0, HwRole, o.hwId);
        top->setData(0, VersionRole, o.version);
        top->setData(0, VariantRole, -1);
        const QVector<FirmwareDatabase::Firmware> all = m_database.firmwares(o.hwId);
        int variant = -1;
        for (const auto &f : all) {
            if (f.swId == o.version && !listed.contains(o.hwId * 65536 + f.variant)) {
                variant = f.variant;
                break;
            }
        }
        listed.insert(o.hwId * 65536 + variant);
        top->setData(0, VariantRole, variant);
        for (const auto &f : all) {
            if (f.variant != variant)
                continue;
            auto *child = new QTreeWidgetItem(top);
            // Below the device its versions, each by its release date.
            child->setText(0, FirmwareDatabase::displayDate(f.date));
            child->setText(1, BootLoaderProtocol::versionText(quint16(f.swId)));
            child->setData(0, HwRole, o.hwId);
            child->setData(0, VariantRole, f.variant);
            child->setData(0, VersionRole, f.swId);
        }
    }
}

void DialogUpdater::showSelected()
{
    if (!m_customFile.isEmpty()) {
        m_description->setHtml(styled(tr("Custom update file. Press <b>Update</b> to start the update.")));
        setBusy(m_busy);
        return;
    }
    const QTreeWidgetItem *item = m_list->currentItem();
    if (!item || !m_databaseOpen) {
        m_description->setHtml(styled(m_databaseOpen ? QString() : m_database.lastError().toHtmlEscaped()));
        setBusy(m_busy);
        return;
    }
    const int hw = item->data(0, HwRole).toInt();
    const int variant = item->data(0, VariantRole).toInt();
    const int version = item->data(0, VersionRole).toInt();
    QString date;
    for (const auto &f : m_database.firmwares(hw)) {
        if (f.variant == variant && f.swId == version)
            date = FirmwareDatabase::displayDate(f.date);
    }
    m_description->setHtml(
        styled(QStringLiteral("<h3>%1 %2</h3><p>%3</p>%4")
                   .arg((item->parent() ? item->parent() : item)->text(0).toHtmlEscaped(), item->text(1),
                        date, notesList(m_database.releaseNotes(hw, variant, version)))));
    setBusy(m_busy);
}

void DialogUpdater::chooseCustomFile()
{
    const QString path =
        QFileDialog::getOpenFileName(this, tr("Open update file"), QString(), tr("Binary files (*.bin)"));
    if (!path.isEmpty())
        useCustomFile(path);
}

void DialogUpdater::useCustomFile(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        setStatus(tr("Unable to open the update file."));
        return;
    }
    m_customFile = path;
    showSelected();
}

QString DialogUpdater::descriptionText() const
{
    return m_description->toPlainText();
}

QString DialogUpdater::deviceLine() const
{
    return m_deviceLine->text();
}

QString DialogUpdater::statusText() const
{
    return m_status->text();
}

void DialogUpdater::setStatus(const QString &text)
{
    m_status->setText(text);
}

void DialogUpdater::setBusy(bool busy)
{
    m_busy = busy;
    const QTreeWidgetItem *item = m_list->currentItem();
    const bool chosen = !m_customFile.isEmpty() || (item && item->data(0, VariantRole).toInt() >= 0);
    m_detect->setEnabled(!busy && m_updater);
    m_open->setEnabled(!busy);
    m_list->setEnabled(!busy);
    m_update->setEnabled(!busy && m_updater && m_haveDevice && chosen);
}

void DialogUpdater::requestUpdateInfo()
{
    if (!m_updater || m_busy)
        return;
    m_infoOnly = true;
    // With several devices on the bus, the one the chosen firmware is for is asked; otherwise the one
    // alone on the adapter.
    DeviceUpdater::Options options = m_updater->options();
    options.target = 0;
    const QTreeWidgetItem *item = m_list->currentItem();
    if (m_customFile.isEmpty() && item && m_link) {
        const int hw = item->data(0, HwRole).toInt();
        for (const Device &d : m_link->devices()) {
            if (d.hardware == hw && d.identifier != 0) {
                options.target = d.identifier;
                break;
            }
        }
    }
    m_updater->setOptions(options);
    setBusy(true);
    setStatus(tr("Get device info:"));
    m_updater->requestUpdateInfo();
}

void DialogUpdater::startUpdate()
{
    if (!m_updater || m_busy || !m_haveDevice)
        return;
    FirmwareImage image;
    QString why;
    QString newVersion;
    int version = 0;
    if (!m_customFile.isEmpty()) {
        QFile file(m_customFile);
        if (file.size() > FirmwareImage::kMaxImageBytes || !file.open(QIODevice::ReadOnly)) {
            setStatus(tr("Unable to open the update file."));
            return;
        }
        if (!FirmwareImage::parse(file.readAll(), &image, &why)) {
            setStatus(why);
            return;
        }
        newVersion = QFileInfo(m_customFile).fileName();
    } else {
        const QTreeWidgetItem *item = m_list->currentItem();
        if (!item)
            return;
        const int hw = item->data(0, HwRole).toInt();
        const int variant = item->data(0, VariantRole).toInt();
        version = item->data(0, VersionRole).toInt();
        if (hw != m_device.hardware) {
            setStatus(tr("This firmware is for hardware %1; the device on the adapter is hardware %2.")
                          .arg(hw)
                          .arg(m_device.hardware));
            return;
        }
        QByteArray data;
        if (!m_database.image(hw, variant, version, &data)) {
            setStatus(m_database.lastError());
            return;
        }
        if (!FirmwareImage::parse(data, &image, &why)) {
            setStatus(why);
            return;
        }
        newVersion = BootLoaderProtocol::versionText(quint16(version));
    }
    const QString question =
        tr("Update %1 (ID %2:%3) from firmware %4 to %5?")
            .arg(m_device.name.isEmpty() ? tr("hardware %1").arg(m_device.hardware) : m_device.name)
            .arg(QStringLiteral("%1").arg(m_device.idHigh(), 4, 16, QLatin1Char('0')).toUpper(),
                 QStringLiteral("%1").arg(m_device.idLow(), 4, 16, QLatin1Char('0')).toUpper())
            .arg(BootLoaderProtocol::versionText(m_device.firmware), newVersion);
    if (!m_confirm(question))
        return;
    DeviceUpdater::Options options = m_updater->options();
    options.target = m_device.identifier;
    options.newVersion = quint16(version);
    m_updater->setOptions(options);
    m_infoOnly = false;
    m_progress->setValue(0);
    setBusy(true);
    if (!m_updater->start(image))
        setBusy(false);
}

void DialogUpdater::onStatus(const UpdatingStatus &status)
{
    switch (status.stage) {
    case UpdatingStatus::Connecting:
        setStatus(tr("Update connect attempt:") + QLatin1Char(' ') + QString::number(status.attempt));
        break;
    case UpdatingStatus::Connected: {
        m_device = status.device;
        m_haveDevice = true;
        const QString name = m_device.name.isEmpty() ? tr("HW %1").arg(m_device.hardware) : m_device.name;
        m_deviceLine->setText(
            QStringLiteral("<img src=\"%1\" height=\"%4\"> &nbsp;&nbsp; %2 &nbsp;&nbsp;|&nbsp;&nbsp; %3")
                .arg(QLatin1String(kDeviceIcon), name.toHtmlEscaped(), DeviceUpdater::connectedText(m_device),
                     QString::number(kDeviceIconHeight)));
        setStatus(tr("Device detected"));
        break;
    }
    case UpdatingStatus::Programming:
        setStatus(tr("Packet %1 of %2").arg(status.packet).arg(status.packetCount));
        break;
    case UpdatingStatus::Unreachable:
        m_haveDevice = false;
        m_deviceLine->setText(tr("Device Disconnected"));
        setStatus(status.text);
        break;
    default:
        if (!status.text.isEmpty())
            setStatus(status.text);
        break;
    }
}

void DialogUpdater::onFinished(int result)
{
    if (result == DeviceUpdater::Succeeded && !m_infoOnly) {
        // The device now runs the new firmware; ask it again before another update.
        m_haveDevice = false;
        m_progress->setValue(100);
    }
    if (result == DeviceUpdater::PortClosed)
        setStatus(tr("Serial port closed"));
    setBusy(false);
}
