#include "widgets/devices/WidgetLxBusConfig.h"

#include "widgets/devices/DeviceParamLink.h"
#include "widgets/devices/DeviceSession.h"
#include "widgets/devices/LxBusTableModel.h"
#include "widgets/layout/Prompter.h"

#include <QCoreApplication>
#include <QDebug>
#include <QQmlContext>
#include <QQuickItem>
#include <QTimer>
#include <QUrl>

namespace {
// The scene function that builds each kind of element.
const char *adderFor(const QString &kind)
{
    static const QHash<QString, const char *> adders = {{QStringLiteral("Row"), "addRow"},
                                                        {QStringLiteral("Label"), "addLabel"},
                                                        {QStringLiteral("Link"), "addLink"},
                                                        {QStringLiteral("Command"), "addCommand"},
                                                        {QStringLiteral("Int"), "addIntbox"},
                                                        {QStringLiteral("Select"), "addSelectbox"},
                                                        {QStringLiteral("Channel"), "addChannelbox"},
                                                        {QStringLiteral("Date"), "addDatebox"},
                                                        {QStringLiteral("Time"), "addTimebox"},
                                                        {QStringLiteral("Chart"), "addChart"},
                                                        {QStringLiteral("Bitmap"), "addBitmap"},
                                                        {QStringLiteral("Button"), "addButton"}};
    return adders.value(kind, nullptr);
}

constexpr int kChannels = 16;
} // namespace

WidgetLxBusConfig::WidgetLxBusConfig(const Device &device, DeviceParamLink *link, Prompter *prompter,
                                     QWidget *parent)
    : QQuickWidget(parent), m_session(new DeviceSession(device, link, prompter, this))
{
    Q_INIT_RESOURCE(lx);
    setWindowFlag(Qt::Window);
    setWindowTitle(tr("LX Bus Device Properties"));
    setResizeMode(QQuickWidget::SizeRootObjectToView);
    setMinimumSize(340, 420);
    resize(380, 600);
    rootContext()->setContextProperty(QStringLiteral("MainWindow"), this);
    rootContext()->setContextProperty(
        QStringLiteral("AppPath"),
        QUrl::fromLocalFile(QCoreApplication::applicationDirPath() + QLatin1Char('/')));
    rootContext()->setContextProperty(QStringLiteral("DeviceSettings"), m_session);
    setSource(QUrl(QStringLiteral("qrc:///Qml/Qml/LxRoot.qml")));
    for (const QQmlError &e : errors())
        qWarning().noquote() << e.toString();

    connect(m_session, &DeviceSession::valuesLoaded, this, &WidgetLxBusConfig::valuesLoaded);
    connect(m_session, &DeviceSession::statusChanged, this, &WidgetLxBusConfig::setStatus);
    connect(m_session, &DeviceSession::failed, this, &WidgetLxBusConfig::setStatus);
    connect(m_session, &DeviceSession::writeRefused, this,
            [this](const QStringList &reasons) { setStatus(reasons.join(QLatin1Char('\n'))); });
    if (link) {
        // A command may change any setting (a factory reset): what the device holds now is read again.
        connect(link, &DeviceParamLink::commandConfirmed, this, [this](quint16 address) {
            const DeviceCommand *c = m_session->definition().command(address - DeviceCommand::kAddressBase);
            if (!c)
                return;
            setStatus(tr("Done: %1").arg(c->text));
            m_session->read();
        });
    }
}

QQuickItem *WidgetLxBusConfig::root() const
{
    return rootObject();
}

bool WidgetLxBusConfig::start(const QString &definitionsPath)
{
    return started(m_session->start(definitionsPath));
}

bool WidgetLxBusConfig::start(const DeviceDefinitions &definitions)
{
    return started(m_session->start(definitions));
}

bool WidgetLxBusConfig::started(bool ok)
{
    if (!ok)
        return false;
    setWindowTitle(tr("%1 :: LX Bus").arg(m_session->device().name));
    const DeviceDefinition &d = m_session->definition();
    if (!d.pages.isEmpty())
        goToPage(d.pages.first().id);
    return true;
}

QVariant WidgetLxBusConfig::callRoot(const char *function, const QVariant &a, const QVariant &b)
{
    QVariant result;
    QQuickItem *scene = rootObject();
    if (!scene)
        return result;
    if (b.isValid())
        QMetaObject::invokeMethod(scene, function, Q_RETURN_ARG(QVariant, result), Q_ARG(QVariant, a),
                                  Q_ARG(QVariant, b));
    else if (a.isValid())
        QMetaObject::invokeMethod(scene, function, Q_RETURN_ARG(QVariant, result), Q_ARG(QVariant, a));
    else
        QMetaObject::invokeMethod(scene, function, Q_RETURN_ARG(QVariant, result));
    return result;
}

void WidgetLxBusConfig::goToPage(int pageId, const QString &file, int wizardMode, int meaning)
{
    Q_UNUSED(file);
    Q_UNUSED(wizardMode);
    Q_UNUSED(meaning);
    const DevicePage *page = m_session->definition().page(pageId);
    if (!page)
        return;
    const int known = m_pages.indexOf(pageId);
    if (known >= 0)
        m_pages.resize(known + 1);
    else
        m_pages.append(pageId);
    // A page built before is popped back to: the scene keeps it (and says so by returning false).
    const bool built = m_visibility.contains(pageId);
    const bool added = callRoot("addPage", page->title, pageId).toBool();
    if (built || !added) {
        if (!built && rootObject())
            qWarning().noquote() << "LX Bus pages: the scene could not add page" << pageId;
        callRoot("updateVisibility", QVariant());
        valuesLoaded(m_session->model()->settings().loadedPercent());
        if (built)
            return;
    }
    const DevParamVector &values = m_session->model()->params();
    QVector<DeviceExpression> visibility;
    for (const DevicePageElement &e : page->elements) {
        QVariantMap p = e.properties;
        const QVariant visible = p.take(QStringLiteral("visible"));
        visibility.append(visible.type() == QVariant::String
                              ? DeviceExpression::number(visible.toString())
                              : DeviceExpression::number(visible.isValid() && !visible.toBool()
                                                             ? QStringLiteral("0")
                                                             : QStringLiteral("1")));
        // A value component starts from what the device holds, never from anything else.
        if (p.contains(QStringLiteral("pParam"))) {
            const int i =
                m_session->model()->settings().indexOfId(quint16(p.value(QStringLiteral("pParam")).toInt()));
            if (i >= 0 && values.at(i).loaded) {
                p.insert(QStringLiteral("pValue"), values.at(i).raw());
                p.insert(QStringLiteral("pFloatValue"), values.at(i).floatValue());
            }
        }
        if (e.kind == QLatin1String("Command") && !p.contains(QStringLiteral("pValue"))) {
            if (const DeviceCommand *c =
                    m_session->definition().command(p.value(QStringLiteral("pCommand")).toInt()))
                p.insert(QStringLiteral("pValue"), c->value);
        }
        if (e.kind == QLatin1String("Channel") && !p.contains(QStringLiteral("pKeyValues"))) {
            QVariantList channels;
            for (int c = 1; c <= kChannels; ++c)
                channels.append(QVariant(QVariantList{c, tr("Channel %1").arg(c)}));
            p.insert(QStringLiteral("pKeyValues"), channels);
        }
        const char *adder = adderFor(e.kind);
        if (!adder || !callRoot(adder, p).toBool())
            qWarning().noquote() << "LX Bus pages: could not add" << e.kind << "to page" << pageId;
    }
    m_visibility.insert(pageId, visibility);
    callRoot("updateVisibility", QVariant());
    valuesLoaded(m_session->model()->settings().loadedPercent());
}

void WidgetLxBusConfig::goBackPage()
{
    if (m_pages.size() > 1)
        m_pages.removeLast();
}

void WidgetLxBusConfig::executeCommand(int cmd, int val, int meaning, int page, int wizard)
{
    runCommand(cmd, val, meaning, page, wizard, 0);
}

void WidgetLxBusConfig::runCommand(int cmd, int val, int meaning, int page, int wizard, int retry)
{
    const DeviceCommand *c = m_session->definition().command(cmd);
    if (!c || !m_session->isStarted())
        return;
    if ((c->flags & DeviceCommand::Confirm) && retry == 0 &&
        m_session->prompter()->question(
            this, tr("Device"), tr("<b>Execude command?</b><p>- %1</p>").arg(c->text.toHtmlEscaped())) !=
            QMessageBox::Yes)
        return;
    if (m_session->command(c->address(), val, DeviceCommand::kValueSize, 1)) {
        m_pending = {cmd, val, meaning, page, wizard};
        setStatus(tr("Running: %1").arg(c->text));
        return;
    }
    ++retry;
    if (retry < kCommandTries) {
        qDebug().noquote() << "Retries " << retry;
        QTimer::singleShot(kCommandRetryMs, this,
                           [=] { runCommand(cmd, val, meaning, page, wizard, retry); });
        return;
    }
    m_session->prompter()->warning(this, tr("Device error"), tr("Error executing command"));
}

void WidgetLxBusConfig::writeParam(int param, int value)
{
    const DeviceSettings &s = m_session->model()->settings();
    const int i = s.indexOfId(quint16(param));
    if (i < 0)
        return;
    DevParam p = s.params.at(i);
    const QString why = p.refusal(value);
    if (!why.isEmpty()) {
        // Nothing is sent; the page shows the device's value again.
        setStatus(tr("Not written: %1").arg(why));
        valuesLoaded(s.loadedPercent());
        return;
    }
    p.value = value;
    m_session->write({p});
}

void WidgetLxBusConfig::writeBit(int param, int bitNo, int val)
{
    const DeviceSettings &s = m_session->model()->settings();
    const int i = s.indexOfId(quint16(param));
    if (i < 0 || bitNo > 31)
        return;
    // Without a bit the button switches the whole value.
    if (bitNo < 0) {
        writeParam(param, val);
        return;
    }
    const qint64 current = s.params.at(i).raw();
    const qint64 mask = qint64(1) << bitNo;
    // The scene hands either the whole value with the bit changed, or the bit's new state.
    const qint64 next =
        ((qint64(val) ^ current) & ~mask) == 0 ? qint64(val) : (val ? current | mask : current & ~mask);
    writeParam(param, int(next));
}

bool WidgetLxBusConfig::lookup(int id, double *value) const
{
    const DeviceSettings &s = m_session->model()->settings();
    const int i = s.indexOfId(quint16(id));
    if (i < 0)
        return false;
    *value = double(s.params.at(i).raw());
    return true;
}

const DeviceExpression &WidgetLxBusConfig::expression(const QString &text, bool label)
{
    const QString key = (label ? QStringLiteral("L") : QStringLiteral("N")) + text;
    auto it = m_expressions.find(key);
    if (it == m_expressions.end())
        it =
            m_expressions.insert(key, label ? DeviceExpression::label(text) : DeviceExpression::number(text));
    return it.value();
}

bool WidgetLxBusConfig::isComponentVisible(int index)
{
    const QVector<DeviceExpression> &page = m_visibility.value(currentPage());
    if (index < 0 || index >= page.size())
        return true;
    return page.at(index).isTrue([this](int id, double *v) { return lookup(id, v); });
}

double WidgetLxBusConfig::parseExpr(const QString &text)
{
    return expression(text, false).evaluate([this](int id, double *v) { return lookup(id, v); });
}

QString WidgetLxBusConfig::parseExprLabel(const QString &text)
{
    return expression(text, true).evaluateLabel([this](int id, double *v) { return lookup(id, v); });
}

void WidgetLxBusConfig::importData()
{
    m_session->importSettings();
}

void WidgetLxBusConfig::exportData()
{
    m_session->exportSettings();
}

void WidgetLxBusConfig::valuesLoaded(int percent)
{
    QVariantList list;
    for (const DevParam &p : m_session->model()->params()) {
        if (p.loaded)
            list.append(QVariantMap{{QStringLiteral("id"), p.id},
                                    {QStringLiteral("value"), p.raw()},
                                    {QStringLiteral("floatValue"), p.floatValue()}});
    }
    emit paramsReceived(list);
    callRoot("pageLoaded", percent);
}

void WidgetLxBusConfig::setStatus(const QString &text)
{
    callRoot("setStatusMessage", text);
}
