// The about tab, the about window and the entity-tag helper, with a small
// product site of the tests' own (page_server.py) on 127.0.0.1.
#include "HXAboutViewController.h"
#include "HXAboutWindowController.h"
#include "HXAnimationTiming.h"
#include "HXNetworkReachability.h"
#include "HXOfflinePicture.h"
#include "HXSystemLog.h"
#include "HXTagChecksum.h"
#include "HXWebBrowser.h"
#include "TestSupport.h"

#include <QApplication>
#include <QDesktopServices>
#include <QLabel>
#include <QProcess>
#include <QScrollArea>
#include <QSignalSpy>
#include <QThread>
#include <QVBoxLayout>
#include <QtTest>
#include <atomic>
#include <future>

namespace {

const QString kPython = QStringLiteral("/usr/bin/python3");
const QString kServer = QStringLiteral(ORVEX_TESTS_DIR "/support/page_server.py");

class Browser : public QObject
{
    Q_OBJECT
public:
    QList<QUrl> opened;
public Q_SLOTS:
    void open(const QUrl &url) { opened.append(url); }
};

} // namespace

class TestAboutView : public QObject
{
    Q_OBJECT

private:
    QString site() const { return QStringLiteral("http://127.0.0.1:%1").arg(m_port); }
    // A controller with its page in a window of the tab's size.
    std::unique_ptr<HXAboutViewController> makeController(HXAboutViewController::Options options);
    HXAboutViewController::Page waitForPage(HXAboutViewController *controller);

    QProcess m_server;
    quint16 m_port = 0;
    Browser m_browser;
    std::unique_ptr<QWidget> m_window;

private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase();
    void cleanup();

    void reachability();
    void neverShownNeverAsks();
    void unreachableShowsThePicture();
    void slidesInAndOut();
    void pictureFitsTheTab();
    void onlinePageAndLinks();
    void linksLeaveOnlyForWebAddresses();
    void failedLoadFallsBackToThePicture_data();
    void failedLoadFallsBackToThePicture();
    void aboutWindow();
    void entityTags();
};

void TestAboutView::initTestCase()
{
    if (!QFileInfo::exists(kPython))
        QSKIP("Debian's /usr/bin/python3 is needed for the test site");
    m_server.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    m_server.start(kPython, {kServer});
    QVERIFY(m_server.waitForReadyRead(10000));
    const QByteArray line = m_server.readLine().trimmed();
    QVERIFY(line.startsWith("port "));
    m_port = quint16(line.mid(5).toUInt());
    QDesktopServices::setUrlHandler(QStringLiteral("http"), &m_browser, "open");
    HXAnimationTiming::setScale(0.01);
}

void TestAboutView::cleanupTestCase()
{
    QDesktopServices::unsetUrlHandler(QStringLiteral("http"));
    m_server.kill();
    m_server.waitForFinished();
}

void TestAboutView::cleanup()
{
    m_window.reset();
    m_browser.opened.clear();
}

std::unique_ptr<HXAboutViewController>
TestAboutView::makeController(HXAboutViewController::Options options)
{
    if (options.version.isEmpty())
        options.version = QStringLiteral("0.1.0");
    auto controller = std::make_unique<HXAboutViewController>(options);
    m_window = std::make_unique<QWidget>();
    auto *layout = new QVBoxLayout(m_window.get());
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(controller->view());
    m_window->resize(904, 578);
    m_window->show();
    return controller;
}

HXAboutViewController::Page TestAboutView::waitForPage(HXAboutViewController *controller)
{
    QSignalSpy shown(controller, &HXAboutViewController::pageShown);
    if (!shown.wait(60000))
        return HXAboutViewController::Page::None;
    return shown.first().first().value<HXAboutViewController::Page>();
}

void TestAboutView::reachability()
{
    QVERIFY(HXNetworkReachability::isReachable(QStringLiteral("127.0.0.1")));
    QVERIFY(HXNetworkReachability::isReachable(QStringLiteral("localhost")));
    QVERIFY(!HXNetworkReachability::isReachable(QStringLiteral("www.orvex.invalid")));
    QVERIFY(!HXNetworkReachability::isReachable(QString()));
}

void TestAboutView::neverShownNeverAsks()
{
    std::atomic<int> asked{0};
    HXAboutViewController::Options options;
    options.productPage = site() + QStringLiteral("/orvex/");
    options.reachability = [&asked](const QString &) {
        ++asked;
        return true;
    };
    auto controller = makeController(options);
    QSignalSpy pages(controller.get(), &HXAboutViewController::pageShown);
    QCoreApplication::processEvents();
    // A marker through the queue the check would use: any check started so
    // far has been asked, and its answer delivered, before the marker is back.
    bool markerBack = false;
    HXAboutViewController::sendMarkerThroughReachabilityQueueForTesting(
        [&markerBack] { markerBack = true; });
    QVERIFY(QTest::qWaitFor([&markerBack] { return markerBack; }, 60000));
    QCOMPARE(asked.load(), 0);
    QVERIFY(pages.isEmpty());
    QVERIFY(!controller->webViewRequested());
    QVERIFY(!controller->webView());
}

void TestAboutView::unreachableShowsThePicture()
{
    QStringList hosts;
    HXAboutViewController::Options options;
    options.productPage = QStringLiteral("http://www.talvorn.example/orvex/");
    options.reachability = [&hosts](const QString &host) {
        hosts.append(host); // the worker thread is done before the answer is queued
        return false;
    };
    auto controller = makeController(options);
    QSignalSpy network(controller.get(), &HXAboutViewController::networkIsUpChanged);
    controller->viewWillAppearHX();
    QCOMPARE(waitForPage(controller.get()), HXAboutViewController::Page::Picture);
    QCOMPARE(hosts, QStringList{QStringLiteral("www.talvorn.example")});
    QVERIFY(!controller->networkIsUp());
    QVERIFY(network.isEmpty());
    QVERIFY(!controller->webViewRequested());
    QVERIFY(!controller->webView());
    QVERIFY(controller->offlineScrollView()->isVisibleTo(m_window.get()));
    // A second appearance asks nothing more.
    controller->viewWillAppearHX();
    controller->configureOfflineAd();
    QCOMPARE(hosts.size(), 1);
}

void TestAboutView::slidesInAndOut()
{
    HXAboutViewController::Options options;
    options.reachability = [](const QString &) {
        return false;
    };
    auto controller = makeController(options);
    QWidget *page = controller->view();
    QVERIFY(QTest::qWaitForWindowExposed(m_window.get()));
    controller->viewWillAppearHX();
    QCOMPARE(controller->containerView()->y(), page->height());
    QVERIFY(!controller->isOnScreen());
    controller->viewDidAppearHX();
    QTRY_VERIFY(controller->isOnScreen());
    QCOMPARE(controller->containerView()->geometry(), page->rect());
    QCOMPARE(controller->viewWillDisappearHX(), HXAnimationTiming::microseconds(125000));
    QTRY_COMPARE(controller->containerView()->y(), page->height());
    QVERIFY(!controller->isOnScreen());
}

void TestAboutView::pictureFitsTheTab()
{
    HXOfflinePicture picture(QStringLiteral("0.1.0"));
    QCOMPARE(picture.pictureSize(), QSize(900, 560));
    QVERIFY(picture.accessibleDescription().contains(QLatin1String("version 0.1.0")));
    // The tests by the names and in the order the Status tab shows them, in
    // the picture and in what a screen reader says of it.
    const QStringList groups[] = {
        {QStringLiteral("Hardware"), QStringLiteral("Memory"), QStringLiteral("Battery")},
        {QStringLiteral("System"), QStringLiteral("Disk I/O Errors"),
         QStringLiteral("Power On Self-Test")},
        {QStringLiteral("Drives"), QStringLiteral("Volume Structures"),
         QStringLiteral("Partition Map"), QStringLiteral("RAID"), QStringLiteral("Surface Scan"),
         QStringLiteral("SMART")},
        {QStringLiteral("Files"), QStringLiteral("File Structures")}};
    QStringList drawn;
    QFile svg(QStringLiteral(":/about/aboutOffline.svg"));
    QVERIFY(svg.open(QIODevice::ReadOnly));
    const QString source = QString::fromUtf8(svg.readAll());
    static const QRegularExpression textElement(QStringLiteral("<text[^>]*>([^<]*)</text>"));
    for (const QRegularExpressionMatch &m : textElement.globalMatch(source))
        drawn.append(m.captured(1).replace(QLatin1String("&amp;"), QLatin1String("&")));
    QStringList expected;
    QStringList spoken;
    for (const QStringList &group : groups) {
        expected += group;
        spoken.append(group.first() + QStringLiteral(": ") +
                      group.mid(1).join(QStringLiteral(", ")));
    }
    const int first = int(drawn.indexOf(QStringLiteral("Hardware")));
    QVERIFY(first >= 0);
    QCOMPARE(drawn.mid(first, expected.size()), expected);
    QVERIFY2(picture.accessibleDescription().contains(spoken.join(QStringLiteral(". "))),
             qPrintable(picture.accessibleDescription()));
    // Drawn into the tab's size, the picture reaches every edge it can.
    picture.resize(904, 578);
    QImage image(picture.size(), QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    picture.render(&image, QPoint(), QRegion(), QWidget::DrawChildren);
    const auto opaque = [&image](int x, int y) {
        return qAlpha(image.pixel(x, y)) == 255;
    };
    QVERIFY(opaque(452, 20));
    QVERIFY(opaque(452, 560));
    QVERIFY(opaque(30, 289));
    QVERIFY(opaque(874, 289));
    QVERIFY(!opaque(0, 0)); // the rounded corner
}

void TestAboutView::onlinePageAndLinks()
{
#ifndef ORVEX_WEBENGINE
    QSKIP("built without Qt WebEngine");
#else
    HXAboutViewController::Options options;
    options.productPage = site() + QStringLiteral("/orvex/");
    options.pageTimeoutMilliseconds = 30000; // Chromium's first start in a loaded machine
    auto controller = makeController(options);
    controller->viewWillAppearHX();
    controller->viewDidAppearHX();
    QCOMPARE(waitForPage(controller.get()), HXAboutViewController::Page::Web);
    QVERIFY(controller->networkIsUp());
    QVERIFY(controller->webView()->isVisibleTo(m_window.get()));
    QVERIFY(!controller->offlineScrollView()->isVisibleTo(m_window.get()));
    QCOMPARE(controller->webPage()->url(), QUrl(site() + QStringLiteral("/orvex/index.html")));
    // The corners are cut round.
    const QRegion mask = controller->webView()->mask();
    QVERIFY(!mask.isEmpty());
    QVERIFY(!mask.contains(QPoint(0, 0)));
    QVERIFY(mask.contains(QPoint(20, 20)));

    // A followed link goes to the browser, and the page stays where it is.
    controller->webPage()->runJavaScript(
        QStringLiteral("document.getElementById('link').click();"));
    QTRY_VERIFY_WITH_TIMEOUT(!m_browser.opened.isEmpty(), 30000);
    QCOMPARE(m_browser.opened, QList<QUrl>{QUrl(site() + QStringLiteral("/orvex/elsewhere.html"))});
    QCOMPARE(controller->webPage()->url(), QUrl(site() + QStringLiteral("/orvex/index.html")));
    QCOMPARE(controller->shownPage(), HXAboutViewController::Page::Web);
#endif
}

void TestAboutView::linksLeaveOnlyForWebAddresses()
{
    // The about page's links and the update page go through this one door.
    for (const char *scheme : {"file", "ssh", "javascript", "https"})
        QDesktopServices::setUrlHandler(QString::fromLatin1(scheme), &m_browser, "open");
    QStringList logged;
    HXSystemLog::setSink([&logged](const QString &line) { logged.append(line); });
    const QStringList refused{
        QStringLiteral("file:///etc/passwd"), QStringLiteral("ssh://127.0.0.1/"),
        QStringLiteral("javascript:alert(1)"), QStringLiteral("http:///nohost")};
    for (const QString &address : refused)
        QVERIFY2(!HXWebBrowser::openWebAddress(QUrl(address), QStringLiteral("a link")),
                 qPrintable(address));
    QVERIFY(HXWebBrowser::openWebAddress(QUrl(QStringLiteral("https://www.talvorn.example/")),
                                         QStringLiteral("a link")));
    QVERIFY(HXWebBrowser::openWebAddress(QUrl(site()), QStringLiteral("a link")));
    HXSystemLog::setSink(nullptr);
    for (const char *scheme : {"file", "ssh", "javascript", "https"})
        QDesktopServices::unsetUrlHandler(QString::fromLatin1(scheme));
    QCOMPARE(m_browser.opened,
             (QList<QUrl>{QUrl(QStringLiteral("https://www.talvorn.example/")), QUrl(site())}));
    QCOMPARE(logged.size(), refused.size());
    QVERIFY(logged.first().contains(QLatin1String("file:///etc/passwd")));
}

void TestAboutView::failedLoadFallsBackToThePicture_data()
{
    QTest::addColumn<QString>("page");
    QTest::addColumn<int>("timeout");
    // A port nobody listens on, found after the reachability check said yes.
    QTest::newRow("refused") << QStringLiteral("http://127.0.0.1:9/orvex/") << 30000;
    QTest::newRow("silent server") << QStringLiteral("/silent/") << 1500;
}

void TestAboutView::failedLoadFallsBackToThePicture()
{
#ifndef ORVEX_WEBENGINE
    QSKIP("built without Qt WebEngine");
#else
    QFETCH(QString, page);
    QFETCH(int, timeout);
    HXAboutViewController::Options options;
    options.productPage = page.startsWith(QLatin1Char('/')) ? site() + page : page;
    options.pageTimeoutMilliseconds = timeout;
    auto controller = makeController(options);
    controller->viewWillAppearHX();
    QCOMPARE(waitForPage(controller.get()), HXAboutViewController::Page::Picture);
    QVERIFY(controller->networkIsUp());
    QVERIFY(controller->webViewRequested());
    QVERIFY(controller->offlineScrollView()->isVisibleTo(m_window.get()));
    QTRY_VERIFY(!controller->webView());
#endif
}

void TestAboutView::aboutWindow()
{
    auto *window = new HXAboutWindowController(QStringLiteral("86"));
    QPointer<QWidget> guard(window);
    QCOMPARE(window->versionField()->text(),
             QStringLiteral("Version %1 (86)").arg(QCoreApplication::applicationVersion()));
    // Point sizes, which follow the screen's resolution; no pixel size.
    QCOMPARE(window->versionField()->font().pointSize(), 13);
    QCOMPARE(window->copyrightField()->font().pointSize(), 10);
    QCOMPARE(window->versionField()->font().pixelSize(), -1);
    QVERIFY(window->copyrightField()->text().contains(QStringLiteral("Copyright ©")));
    QVERIFY(!window->systemField()->text().endsWith(QLatin1String("on ")));
    for (QLabel *field :
         {window->versionField(), window->systemField(), window->copyrightField()}) {
        QCOMPARE(field->accessibleName(), field->text());
        QVERIFY(field->focusPolicy() & Qt::TabFocus);
    }
    window->show();
    window->close(); // it goes when closed
    QTRY_VERIFY(!guard);
}

void TestAboutView::entityTags()
{
    QStringList logged;
    HXSystemLog::setSink([&logged](const QString &line) { logged.append(line); });
    const auto tagOf = [](const QString &url) {
        // Never on the interface thread: the helper waits for the server.
        return std::async(std::launch::async,
                          [url] { return HXTagChecksumForFileAtURL(QUrl(url)); })
            .get();
    };
    QCOMPARE(tagOf(site() + QStringLiteral("/etag")), QStringLiteral("abc-123"));
    QVERIFY(logged.isEmpty());
    // An error answer's tag still comes back; the error is logged.
    QCOMPARE(tagOf(site() + QStringLiteral("/missing")), QStringLiteral("gone-1"));
    QCOMPARE(logged.size(), 1);
    QVERIFY(logged.first().startsWith(QLatin1String("HXETagChecksumForImageAtURL error: ")));
    // No HTTP answer at all: no tag.
    QVERIFY(tagOf(QStringLiteral("http://127.0.0.1:9/etag")).isNull());
    QCOMPARE(logged.size(), 2);
    HXSystemLog::setSink(nullptr);
}

int main(int argc, char **argv)
{
    QApplication app(argc, argv);
    app.setApplicationVersion(QStringLiteral("0.1.0"));
    TestAboutView test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_aboutview.moc"
