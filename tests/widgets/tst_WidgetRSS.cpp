#include "widgets/news/WidgetRSS.h"

#include "tests/support/LocalHttpServer.h"

#include <QTextBlock>
#include <QTextBrowser>
#include <QtTest>

class tst_WidgetRSS : public QObject
{
    Q_OBJECT
private slots:
    void withoutAddressSaysHowToSetOne()
    {
        WidgetRSS window{QString()};
        QVERIFY(!window.isLoading());
        QVERIFY(window.document()->toPlainText().contains("VEXO_NEWS_URL"));
    }

    // The page replaces the placeholder and its picture arrives as a resource of the page.
    void showsRowsAndPicture()
    {
        LocalHttpServer server;
        QImage picture(200, 100, QImage::Format_RGB32);
        picture.fill(Qt::red);
        QByteArray png;
        QBuffer buffer(&png);
        buffer.open(QIODevice::WriteOnly);
        picture.save(&buffer, "PNG");
        server.setReply("/p.png", LocalHttpServer::Reply::ok(png, "image/png"));
        const QString image = server.url("/p.png");
        server.setReply("/feed.xml",
                        LocalHttpServer::Reply::ok("<rss><channel><item><title>Spring meeting</title>"
                                                   "<link>http://example.com/m</link><description>"
                                                   "<![CDATA[<img src=\"" +
                                                   image.toUtf8() +
                                                   "\">Come along]]></description></item>"
                                                   "</channel></rss>"));
        WidgetRSS window(server.url("/feed.xml"));
        window.resize(400, 300);
        window.show();
        QVERIFY(window.property("loading").toBool()); // also while the fetch waits for its turn
        QVERIFY(window.document()->toPlainText().contains("Vexo RSS"));
        QTRY_VERIFY_WITH_TIMEOUT(!window.property("loading").toBool(), 20000);
        const QString text = window.document()->toPlainText();
        QVERIFY2(text.contains("Spring meeting") && text.contains("Come along"), qPrintable(text));
        // The picture the page's img element names.
        QString name;
        for (QTextBlock b = window.document()->begin(); b.isValid(); b = b.next())
            for (auto f = b.begin(); !f.atEnd(); ++f)
                if (f.fragment().charFormat().isImageFormat())
                    name = f.fragment().charFormat().toImageFormat().name();
        QCOMPARE(name, image);
        const QVariant resource = window.document()->resource(QTextDocument::ImageResource, QUrl(name));
        QCOMPARE(resource.value<QImage>().size(), QSize(80, 40));
        QCOMPARE(resource.value<QImage>().pixelColor(40, 20), QColor(Qt::red));

        // A click on "Detail" goes to the opener and nowhere else; a script link not even there.
        QList<QUrl> opened;
        window.setOpener([&opened](const QUrl &url) {
            opened << url;
            return true;
        });
        QTextCursor detail = window.document()->find("Detail");
        QVERIFY(!detail.isNull());
        detail.setPosition(detail.selectionStart() + 2);
        QTextBrowser *view = window.view();
        view->ensureCursorVisible();
        const QPoint at = view->cursorRect(detail).center();
        QTest::mouseClick(view->viewport(), Qt::LeftButton, Qt::NoModifier, at);
        emit view->anchorClicked(QUrl("javascript:alert(1)"));
        QCOMPARE(opened, QList<QUrl>{QUrl("http://example.com/m")});
        QVERIFY(view->source().isEmpty());
    }
};

QTEST_MAIN(tst_WidgetRSS)
#include "tst_WidgetRSS.moc"
