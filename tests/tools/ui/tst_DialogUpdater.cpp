#include "tools/ui/DialogUpdater.h"

#include "tests/support/LinkRig.h"
#include "tests/support/TestFiles.h"

#include <QTemporaryDir>
#include <QTreeWidget>
#include <QtTest>

// The updater dialog over the simulated bus: what it lists, what it asks before sending, and the run.
class tst_DialogUpdater : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;
    QString m_fwdb;
    QByteArray m_image;

    // The row of a device's version, below its newest.
    QTreeWidgetItem *find(QTreeWidget *list, const QString &name, const QString &version)
    {
        for (int i = 0; i < list->topLevelItemCount(); ++i) {
            QTreeWidgetItem *top = list->topLevelItem(i);
            for (int j = 0; top->text(0) == name && j < top->childCount(); ++j) {
                if (top->child(j)->text(1) == version)
                    return top->child(j);
            }
        }
        return nullptr;
    }

private slots:
    void initTestCase()
    {
        m_image = QByteArray(16, 'H');
        for (int i = 0; i < 3; ++i)
            m_image += QByteArray("\x80\x04", 2) + QByteArray(4, char('a' + i));
        m_image += '\0';
        const QString image = m_dir.filePath("rx.bin");
        QVERIFY(writeFile(image, m_image));
        QString error;
        FirmwareDatabase::Entry e;
        e.hwId = 515; // the simulated receiver, first on the adapter
        e.name = QStringLiteral("RX Vexo R8");
        e.date = QStringLiteral("2025-02-03 04:05:06");
        e.data = m_image;
        QVector<FirmwareDatabase::Entry> rows;
        for (int minor : {3, 4}) {
            e.swId = 0x0100 | minor;
            e.descriptions = {{QStringLiteral("en"), QStringLiteral("Notes of 1.%1").arg(minor)}};
            rows << e;
        }
        e.hwId = 304;
        e.name = QStringLiteral("Vario Alt");
        e.swId = 0x0105;
        rows << e;
        m_fwdb = m_dir.filePath("DeviceUpdates.sqlite");
        QVERIFY2(FirmwareDatabase::addFirmware(m_fwdb, rows, &error), qPrintable(error));
    }

    void withoutAdapter()
    {
        DialogUpdater dialog(nullptr, m_fwdb);
        QTreeWidget *list = dialog.firmwareList();
        QCOMPARE(list->headerItem()->text(0), QStringLiteral("Name"));
        QCOMPARE(list->headerItem()->text(1), QStringLiteral("Version"));
        QCOMPARE(list->topLevelItemCount(), 2);
        QTreeWidgetItem *older = find(list, "RX Vexo R8", "1.3");
        QVERIFY(older);
        QCOMPARE(older->parent()->text(1), QStringLiteral("1.4")); // the newest heads the device
        list->setCurrentItem(older->parent());
        QVERIFY2(dialog.descriptionText().contains("Notes of 1.4\nNotes of 1.3"),
                 qPrintable(dialog.descriptionText()));
        list->setCurrentItem(older);
        QVERIFY(!dialog.descriptionText().contains("Notes of 1.4"));
        QVERIFY(dialog.descriptionText().contains("2025-2-3 04:05:06"));

        dialog.useCustomFile(m_dir.filePath("none.bin"));
        QCOMPARE(dialog.statusText(), QStringLiteral("Unable to open the update file."));
        dialog.useCustomFile(m_dir.filePath("rx.bin"));
        QCOMPARE(dialog.descriptionText(),
                 QStringLiteral("Custom update file. Press Update to start the update."));

        DialogUpdater missing(nullptr, m_dir.filePath("none.sqlite"));
        QCOMPARE(missing.descriptionText(), QStringLiteral("Device database doesn't exist"));
    }

    void detectConfirmAndUpdate()
    {
        Rig rig;
        QVERIFY(rig.ok);
        DialogUpdater dialog(rig.link.wrapper(), m_fwdb);
        QStringList asked;
        bool answer = false;
        dialog.setConfirmer([&](const QString &question) {
            asked << question;
            return answer;
        });
        int flashed = 0;
        connect(&rig.sim, &BusSimulator::firmwareFlashed, this, [&] { ++flashed; });

        dialog.requestUpdateInfo();
        QVERIFY(waitFor([&] { return dialog.statusText() == "Device detected"; }, 10000));
        QCOMPARE(dialog.deviceLine(),
                 QStringLiteral("<img src=\":/Icons/Program/Resources/dev_explorer.png\" height=\"32\"> "
                                "&nbsp;&nbsp; RX Vexo R8 "
                                "&nbsp;&nbsp;|&nbsp;&nbsp; Connected: ID = [0010:A401], Firmware ver.: "
                                "<b>1.3</b> <i>(HW=515, "
                                "BL=3)</i>"));
        QVERIFY(waitFor([&] { return dialog.firmwareList()->isEnabled(); }, 5000));

        // Firmware of another device is refused before anything is asked or sent.
        dialog.firmwareList()->setCurrentItem(find(dialog.firmwareList(), "Vario Alt", "1.5"));
        dialog.startUpdate();
        QVERIFY(dialog.statusText().contains("hardware 304; the device on the adapter is hardware 515"));
        QVERIFY(asked.isEmpty());

        // "No" sends nothing.
        dialog.firmwareList()->setCurrentItem(find(dialog.firmwareList(), "RX Vexo R8", "1.4"));
        dialog.startUpdate();
        QCOMPARE(asked, QStringList{"Update RX Vexo R8 (ID 0010:A401) from firmware 1.3 to 1.4?"});
        answer = true;
        dialog.startUpdate();
        QVERIFY(waitFor([&] { return dialog.statusText() == "Update finished"; }, 20000));
        QCOMPARE(flashed, 1);
        QCOMPARE(rig.sim.unit(BusSimulator::kReceiverId)->extra2, quint8(4));
        QByteArray received = QByteArray(16, 'H');
        for (const QByteArray &p : rig.sim.flashedPackets())
            received += p;
        QCOMPARE(received + '\0', m_image);
    }
};

QTEST_MAIN(tst_DialogUpdater)
#include "tst_DialogUpdater.moc"
