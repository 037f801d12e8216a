// The module that brings Qt WebEngine into the program, loaded on first use
// by the about tab (see HXWebPageView.h).
#include "HXWebPageView.h"

#include <QCoreApplication>
#include <QGuiApplication>
#include <QOpenGLContext>
#include <QPointer>
#include <QQuickWindow>
#include <QTimer>
#include <QWebEnginePage>
#include <QWebEngineProfile>
#include <QWebEngineView>
#include <algorithm>
#include <memory>
#include <unistd.h>

// Qt's context that every other OpenGL context shares with; Qt WebEngine
// reads it when its first view is made.
Q_GUI_EXPORT QOpenGLContext *qt_gl_global_share_context();
Q_GUI_EXPORT void qt_gl_set_global_share_context(QOpenGLContext *context);

namespace {

// Sends followed links out of the program and keeps the page where it is.
class LinkPolicyPage : public QWebEnginePage
{
public:
    LinkPolicyPage(QWebEngineProfile *profile, std::function<void(const QUrl &)> linkClicked,
                   QObject *parent)
        : QWebEnginePage(profile, parent)
        , m_linkClicked(std::move(linkClicked))
    {
    }

protected:
    bool acceptNavigationRequest(const QUrl &url, NavigationType type, bool isMainFrame) override
    {
        Q_UNUSED(isMainFrame);
        if (type == NavigationTypeLinkClicked) {
            if (m_linkClicked)
                m_linkClicked(url);
            return false;
        }
        return true;
    }
    // A link that asks for a new window goes to the browser the same way.
    QWebEnginePage *createWindow(WebWindowType) override
    {
        auto *catcher = new LinkPolicyPage(profile(), m_linkClicked, this);
        connect(catcher, &QWebEnginePage::urlChanged, catcher, [this, catcher](const QUrl &url) {
            if (m_linkClicked && !url.isEmpty())
                m_linkClicked(url);
            catcher->deleteLater();
        });
        return catcher;
    }

private:
    std::function<void(const QUrl &)> m_linkClicked;
};

class WebEnginePageView : public HXWebPageView
{
public:
    WebEnginePageView(QWidget *parent, Handlers handlers)
        : m_handlers(std::move(handlers))
    {
        // A profile of its own that keeps nothing on disk: the page is always
        // asked for anew, as the cache policy that ignores local data wants.
        m_profile = new QWebEngineProfile();
        m_profile->setHttpCacheType(QWebEngineProfile::NoCache);
        m_profile->setPersistentCookiesPolicy(QWebEngineProfile::NoPersistentCookies);
        m_view = new QWebEngineView(parent);
        m_view->setObjectName(QStringLiteral("aboutWebView"));
        m_view->setAccessibleName(QStringLiteral("Orvex product page"));
        m_view->setContextMenuPolicy(Qt::NoContextMenu);
        auto *page = new LinkPolicyPage(m_profile, m_handlers.linkClicked, m_view);
        page->setBackgroundColor(Qt::transparent);
        m_view->setPage(page);
        m_timeout.setSingleShot(true);
        QObject::connect(&m_timeout, &QTimer::timeout, m_view, [this] {
            m_timedOut = true;
            m_view->stop();
            report(false);
        });
        // The page's own limit counts from the moment its request goes out:
        // before that, the first load of a session waits for Chromium's
        // processes to start, which on a busy machine alone can take longer
        // than any page should, and the page would be given up for the
        // session before it was ever asked for.
        QObject::connect(m_view, &QWebEngineView::loadStarted, m_view, [this] {
            if (!m_timedOut && !m_reported && m_waitingForStart) {
                m_waitingForStart = false;
                m_timeout.start(m_pageTimeoutMilliseconds);
            }
        });
        QObject::connect(m_view, &QWebEngineView::loadFinished, m_view, [this](bool ok) {
            // Only the load asked for counts: a link refused later ends its
            // own navigation as "failed" while the page stays as it was.
            if (m_timedOut || m_reported)
                return;
            m_timeout.stop();
            report(ok);
        });
    }
    ~WebEnginePageView() override
    {
        delete m_view.data();
        // The profile goes after the last page that uses it.
        delete m_profile;
    }

    QWidget *widget() override { return m_view; }
    QUrl url() const override { return m_view->url(); }

    void load(const QUrl &url, int timeoutMilliseconds) override
    {
        m_timedOut = false;
        m_reported = false;
        m_waitingForStart = true;
        m_pageTimeoutMilliseconds = timeoutMilliseconds;
        // A Chromium that never gets going still ends in the offline picture.
        m_timeout.start(std::max(timeoutMilliseconds, kStartAllowanceMilliseconds));
        m_view->load(url);
    }

    void runJavaScript(const QString &script) override { m_view->page()->runJavaScript(script); }

private:
    void report(bool ok)
    {
        m_reported = true;
        if (m_handlers.loadFinished)
            m_handlers.loadFinished(ok);
    }

    Handlers m_handlers;
    QWebEngineProfile *m_profile = nullptr;
    // The view may go with the window it sits in before this object goes.
    QPointer<QWebEngineView> m_view;
    static constexpr int kStartAllowanceMilliseconds = 20000;
    QTimer m_timeout;
    int m_pageTimeoutMilliseconds = 0;
    bool m_waitingForStart = false;
    bool m_timedOut = false;
    bool m_reported = false;
};

} // namespace

extern "C" Q_DECL_EXPORT HXWebPageView *HXMakeWebPageView(QWidget *parent,
                                                          HXWebPageView::Handlers handlers)
{
    // Qt Quick finds no way to draw on the offscreen platform, and the
    // first view would take the program down with it.
    if (QGuiApplication::platformName() == QLatin1String("offscreen"))
        return nullptr;
    static bool prepared = false;
    if (!prepared) {
        prepared = true;
        // Qt Quick draws the page in software. With OpenGL, Chromium's
        // compositor would need a context shared with the application's,
        // which has to exist before the application object (and costs every
        // start its price, whether the about tab opens or not); with the
        // software scene graph Qt WebEngine composites without the GPU.
        QQuickWindow::setGraphicsApi(QSGRendererInterface::Software);
        // Qt WebEngine still asks the shared context for its format when
        // its first view is made; made here, the context (and the OpenGL
        // driver it loads) costs only the starts that open the about tab.
        if (!qt_gl_global_share_context()) {
            auto *shared = new QOpenGLContext(QCoreApplication::instance());
            shared->create();
            qt_gl_set_global_share_context(shared);
            QCoreApplication::setAttribute(Qt::AA_ShareOpenGLContexts);
        }
        // Chromium's sandbox refuses to run as root.
        if (::geteuid() == 0 && !qEnvironmentVariableIsSet("QTWEBENGINE_DISABLE_SANDBOX"))
            qputenv("QTWEBENGINE_DISABLE_SANDBOX", "1");
    }
    return new WebEnginePageView(parent, std::move(handlers));
}
