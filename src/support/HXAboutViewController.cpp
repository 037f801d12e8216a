#include "HXAboutViewController.h"

#include "HXAnimationTiming.h"
#include "HXEndpoints.h"
#include "HXNetworkReachability.h"
#include "HXOfflinePicture.h"
#include "HXSystemLog.h"
#include "HXWebBrowser.h"
#include "HXWebPageModule.h"

#include <QCoreApplication>
#include <QPainterPath>
#include <QPropertyAnimation>
#include <QResizeEvent>
#include <QScrollArea>
#include <QScrollBar>
#include <QStackedLayout>
#include <QThreadPool>
#include <QTimer>

// The page the container slides on: it keeps the container as large as
// itself, wherever the container stands.
class HXAboutPage : public QWidget
{
public:
    explicit HXAboutPage(HXAboutViewController *controller)
        : m_controller(controller)
    {
        setObjectName(QStringLiteral("aboutView"));
        setAccessibleName(QCoreApplication::translate("HXAboutViewController", "About"));
    }

protected:
    void resizeEvent(QResizeEvent *event) override
    {
        QWidget::resizeEvent(event);
        m_controller->layoutContainer();
    }

private:
    HXAboutViewController *m_controller;
};

namespace {

// One lookup at a time; the name lookup may take the resolver's own
// time-outs, which must not hold up the window's hand-over waits.
QThreadPool &reachabilityQueue()
{
    static QThreadPool *pool = [] {
        auto *p = new QThreadPool;
        p->setMaxThreadCount(1);
        p->setExpiryTimeout(5000);
        return p;
    }();
    return *pool;
}

} // namespace

HXAboutViewController::HXAboutViewController()
    : HXAboutViewController(Options())
{
}

void HXAboutViewController::sendMarkerThroughReachabilityQueueForTesting(
    std::function<void()> marker)
{
    reachabilityQueue().start([marker = std::move(marker)] {
        QMetaObject::invokeMethod(QCoreApplication::instance(), marker, Qt::QueuedConnection);
    });
}

HXAboutViewController::HXAboutViewController(Options options, QObject *parent)
    : HXViewController(parent)
    , m_options(std::move(options))
{
    setTitle(QStringLiteral("About View"));
    if (!m_options.reachability)
        m_options.reachability = &HXNetworkReachability::isReachable;
    if (m_options.productPage.isEmpty())
        m_options.productPage = HXEndpoints::current().productPage();
    if (m_options.version.isEmpty())
        m_options.version = QCoreApplication::applicationVersion();
}

HXAboutViewController::~HXAboutViewController()
{
    // The web view first, while the container it sits in still exists.
    m_web.reset();
}

QUrl HXAboutViewController::pageUrl() const
{
    QString base = m_options.productPage;
    if (!base.endsWith(QLatin1Char('/')))
        base += QLatin1Char('/');
    return QUrl(base + QStringLiteral("index.html"));
}

bool HXAboutViewController::hasNetworkConnection() const
{
    return m_options.reachability(pageUrl().host());
}

QWidget *HXAboutViewController::makeView()
{
    auto *page = new HXAboutPage(this);
    m_container = new QWidget(page);
    m_container->setObjectName(QStringLiteral("aboutContainer"));
    m_stack = new QStackedLayout(m_container);
    m_stack->setContentsMargins(0, 0, 0, 0);

    m_offlineScrollView = new QScrollArea(m_container);
    m_offlineScrollView->setObjectName(QStringLiteral("aboutOfflineScrollView"));
    m_offlineScrollView->setFrameShape(QFrame::NoFrame);
    m_offlineScrollView->setWidgetResizable(true);
    m_offlineScrollView->setAlignment(Qt::AlignCenter);
    // The window's own background shows around the picture.
    m_offlineScrollView->setAutoFillBackground(false);
    m_offlineScrollView->viewport()->setAutoFillBackground(false);
    m_offlineImageView = new HXOfflinePicture(m_options.version);
    m_offlineImageView->setAutoFillBackground(false);
    m_offlineImageView->setFocusPolicy(Qt::TabFocus);
    m_offlineScrollView->setWidget(m_offlineImageView);
    m_stack->addWidget(m_offlineScrollView);
    layoutContainer();
    return page;
}

void HXAboutViewController::layoutContainer()
{
    QWidget *page = m_container ? m_container->parentWidget() : nullptr;
    if (!page)
        return;
    m_container->resize(page->size());
    // A container resting on screen follows the page; one below it (before
    // sliding in) stays below.
    if (m_container->y() != 0)
        m_container->move(0, page->height());
    roundCorners();
}

QWidget *HXAboutViewController::webView() const
{
    return m_web ? m_web->widget() : nullptr;
}

void HXAboutViewController::viewWillAppearHX()
{
    QWidget *page = view();
    m_container->move(0, page->height());
    if (!m_checkStarted)
        checkNetwork();
}

void HXAboutViewController::viewDidAppearHX()
{
    slideTo(0, kSlideInMilliseconds);
    roundCorners();
}

long long HXAboutViewController::viewWillDisappearHX()
{
    slideTo(view()->height(), int(kSlideOutMicroseconds / 1000));
    return HXAnimationTiming::microseconds(kSlideOutMicroseconds);
}

bool HXAboutViewController::isOnScreen() const
{
    return !m_container || m_container->y() == 0;
}

void HXAboutViewController::slideTo(int y, int milliseconds)
{
    auto *slide = new QPropertyAnimation(m_container, "pos", m_container);
    slide->setDuration(HXAnimationTiming::milliseconds(milliseconds));
    slide->setEasingCurve(QEasingCurve::OutQuad);
    slide->setEndValue(QPoint(0, y));
    slide->start(QAbstractAnimation::DeleteWhenStopped);
}

void HXAboutViewController::checkNetwork()
{
    m_checkStarted = true;
    view();
    // Until the answer (and the page) comes, the tab shows the picture
    // rather than an empty panel.
    m_stack->setCurrentWidget(m_offlineScrollView);
    const QString host = pageUrl().host();
    QPointer<HXAboutViewController> self(this);
    auto reachability = m_options.reachability;
    reachabilityQueue().start([self, host, reachability] {
        const bool reachable = reachability(host);
        QMetaObject::invokeMethod(
            QCoreApplication::instance(),
            [self, reachable] {
                if (self)
                    self->networkAnswered(reachable);
            },
            Qt::QueuedConnection);
    });
}

void HXAboutViewController::networkAnswered(bool reachable)
{
    if (reachable != m_networkIsUp) {
        m_networkIsUp = reachable;
        Q_EMIT networkIsUpChanged(reachable);
    }
    if (reachable)
        configureOnlineAd();
    else
        configureOfflineAd();
}

void HXAboutViewController::configureOnlineAd()
{
    view();
    QString error;
    HXMakeWebPageViewFunction make = HXWebPageModule::factory(&error);
    if (!make) {
#ifdef ORVEX_WEBENGINE
        HXSystemLog::write(
            QStringLiteral("The about page's web view is not available: %1").arg(error));
#endif
        configureOfflineAd();
        return;
    }
    if (!m_web) {
        HXWebPageView::Handlers handlers;
        QPointer<HXAboutViewController> self(this);
        handlers.loadFinished = [self](bool ok) {
            if (self)
                self->pageLoaded(ok);
        };
        // Followed links go to the user's browser; the page stays as it is.
        handlers.linkClicked = [](const QUrl &url) {
            HXWebBrowser::openWebAddress(url, QStringLiteral("a link of the about page"));
        };
        m_web.reset(make(m_container, std::move(handlers)));
        if (!m_web) {
            HXSystemLog::write(
                QStringLiteral("The about page's web view cannot be shown on this display"));
            configureOfflineAd();
            return;
        }
        m_stack->addWidget(m_web->widget());
    }
    m_webRequested = true;
    m_web->load(pageUrl(), m_options.pageTimeoutMilliseconds);
}

void HXAboutViewController::pageLoaded(bool ok)
{
    if (m_shown == Page::Web)
        return;
    if (ok) {
        show(Page::Web);
        return;
    }
    HXSystemLog::write(QStringLiteral("The about page %1 did not load; showing the picture")
                           .arg(pageUrl().toString()));
    configureOfflineAd();
    // Chromium's page has nothing more to show; its memory goes with it.
    if (m_web) {
        m_web->widget()->hide();
        QTimer::singleShot(0, this, [this] {
            if (m_shown == Page::Picture)
                m_web.reset();
        });
    }
}

void HXAboutViewController::configureOfflineAd()
{
    view();
    // The picture at its own size, its start in view.
    m_offlineScrollView->horizontalScrollBar()->setValue(0);
    m_offlineScrollView->verticalScrollBar()->setValue(0);
    show(Page::Picture);
}

void HXAboutViewController::show(Page page)
{
    if (page == Page::Web && m_web)
        m_stack->setCurrentWidget(m_web->widget());
    else
        m_stack->setCurrentWidget(m_offlineScrollView);
    m_shown = page;
    roundCorners();
    Q_EMIT pageShown(page);
}

void HXAboutViewController::roundCorners()
{
    QWidget *web = webView();
    if (!web || !m_container)
        return;
    QPainterPath path;
    path.addRoundedRect(QRectF(QPointF(0, 0), QSizeF(m_container->size())), kCornerRadius,
                        kCornerRadius);
    web->setMask(QRegion(path.toFillPolygon().toPolygon()));
}
