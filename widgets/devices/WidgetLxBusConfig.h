#pragma once

#include "link/Device.h"
#include "link/DeviceDefinitions.h"
#include "link/DeviceExpression.h"

#include <QHash>
#include <QQuickWidget>
#include <QVariantList>
#include <QVector>

class DeviceParamLink;
class DeviceSession;
class Prompter;

// A device's own menu pages, built at run time from its definition in the QML scene LxRoot: the scene
// calls the Q_INVOKABLE methods below (as "MainWindow"), the window fills the scene page by page and hands
// it the values as they arrive. A window of its own beside the studio, like the parameter table.
class WidgetLxBusConfig : public QQuickWidget
{
    Q_OBJECT
public:
    static constexpr int kCommandTries = 11; // the first try and ten retries
    static constexpr int kCommandRetryMs = 100;

    // link is not owned and must outlive the window; prompter null: real dialogs.
    WidgetLxBusConfig(const Device &device, DeviceParamLink *link, Prompter *prompter,
                      QWidget *parent = nullptr);

    // Loads the definitions and shows the start page; false (after the error box) when it cannot.
    bool start(const QString &definitionsPath);
    bool start(const DeviceDefinitions &definitions);

    DeviceSession *session() const { return m_session; }
    QQuickItem *root() const;
    int currentPage() const { return m_pages.isEmpty() ? -1 : m_pages.last(); }
    // The command last confirmed by the engine as taken: id, value, meaning, page, wizard; id -1 for none.
    struct PendingCommand
    {
        int command = -1;
        int value = 0;
        int meaning = 0;
        int page = 0;
        int wizard = 0;
    };
    const PendingCommand &pendingCommand() const { return m_pending; }

    // Called by the scene.
    Q_INVOKABLE void goToPage(int pageId, const QString &file = QString(), int wizardMode = -1,
                              int meaning = 0);
    Q_INVOKABLE void goBackPage();
    Q_INVOKABLE void executeCommand(int cmd, int val, int meaning, int page, int wizard);
    Q_INVOKABLE void writeParam(int param, int value);
    Q_INVOKABLE void writeBit(int param, int bitNo, int val);
    Q_INVOKABLE bool isComponentVisible(int index);
    Q_INVOKABLE double parseExpr(const QString &text);
    Q_INVOKABLE QString parseExprLabel(const QString &text);
    Q_INVOKABLE void importData();
    Q_INVOKABLE void exportData();

signals:
    // After every read: a list of {id, value, floatValue} of the parameters read so far.
    void paramsReceived(const QVariantList &params);

private:
    bool started(bool ok);
    void runCommand(int cmd, int val, int meaning, int page, int wizard, int retry);
    void valuesLoaded(int percent);
    void setStatus(const QString &text);
    QVariant callRoot(const char *function, const QVariant &a, const QVariant &b = QVariant());
    bool lookup(int id, double *value) const;
    const DeviceExpression &expression(const QString &text, bool label);

    DeviceSession *m_session;
    QVector<int> m_pages; // the stack of page ids, the current one last
    // Per page: each component's visibility (an expression; invalid ones always show), in creation order.
    QHash<int, QVector<DeviceExpression>> m_visibility;
    QHash<QString, DeviceExpression> m_expressions;
    PendingCommand m_pending;
};
