#pragma once

#include "HXViewController.h"
#include "HXWebPageView.h"

#include <QPointer>
#include <QUrl>
#include <functional>
#include <memory>

class HXOfflinePicture;
class QScrollArea;
class QStackedLayout;

// The about tab: the product page when its host can be reached, the
// picture kept in the program when it cannot (or when the page does not
// load). Nothing of the web view exists before the tab first appears, so a
// start that never shows the tab never pays for a browser.
class HXAboutViewController : public HXViewController
{
    Q_OBJECT
    Q_PROPERTY(bool networkIsUp READ networkIsUp NOTIFY networkIsUpChanged)

public:
    static constexpr long long kSlideOutMicroseconds = 125000;
    static constexpr int kSlideInMilliseconds = 250;
    static constexpr int kPageTimeoutMilliseconds = 2000;
    static constexpr qreal kCornerRadius = 10.0;

    // Tests: `marker` comes back to the main thread through the queue the
    // reachability checks take, after every check queued before it has
    // been asked and answered.
    static void sendMarkerThroughReachabilityQueueForTesting(std::function<void()> marker);

    struct Options
    {
        // Whether a host can be reached; HXNetworkReachability if empty.
        // Asked on a worker thread.
        std::function<bool(const QString &host)> reachability;
        QString productPage; // the endpoints' product page if empty
        QString version;     // the application's version if empty
        int pageTimeoutMilliseconds = kPageTimeoutMilliseconds;
    };

    enum class Page { None, Picture, Web };
    Q_ENUM(Page)

    HXAboutViewController();
    explicit HXAboutViewController(Options options, QObject *parent = nullptr);
    ~HXAboutViewController() override;

    // True when the product page's host is reachable; asks at once and
    // waits for the answer, so never on the interface thread.
    bool hasNetworkConnection() const;
    bool networkIsUp() const { return m_networkIsUp; }
    // The page's address: the product page with "index.html".
    QUrl pageUrl() const;

    // Shows the product page once it has loaded; the picture until then.
    void configureOnlineAd();
    void configureOfflineAd();

    Page shownPage() const { return m_shown; }
    // Whether the web view was ever asked for a page.
    bool webViewRequested() const { return m_webRequested; }
    QWidget *containerView() const { return m_container; }
    QScrollArea *offlineScrollView() const { return m_offlineScrollView; }
    HXOfflinePicture *offlineImageView() const { return m_offlineImageView; }
    QWidget *webView() const;
    HXWebPageView *webPage() const { return m_web.get(); }

    bool isOnScreen() const override;
    void viewWillAppearHX() override;
    void viewDidAppearHX() override;
    long long viewWillDisappearHX() override;
    void viewDidDisappearHX() override {}

Q_SIGNALS:
    void networkIsUpChanged(bool up);
    // The page now shown, once the reachability check and any load ended.
    void pageShown(HXAboutViewController::Page page);

protected:
    QWidget *makeView() override;

private:
    void checkNetwork();
    void networkAnswered(bool reachable);
    void pageLoaded(bool ok);
    void show(Page page);
    void roundCorners();
    void slideTo(int y, int milliseconds);
    void layoutContainer();

    friend class HXAboutPage;
    Options m_options;
    QPointer<QWidget> m_container;
    QStackedLayout *m_stack = nullptr;
    QScrollArea *m_offlineScrollView = nullptr;
    HXOfflinePicture *m_offlineImageView = nullptr;
    std::unique_ptr<HXWebPageView> m_web;
    Page m_shown = Page::None;
    bool m_networkIsUp = false;
    bool m_checkStarted = false;
    bool m_webRequested = false;
};
