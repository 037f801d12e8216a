#pragma once

#include <QUrl>
#include <functional>

class QWidget;

// The web view of the about tab, as the module that holds Qt WebEngine
// offers it. The module is loaded the first time the about tab asks for a
// page: linked into the program, Qt WebEngine would make an OpenGL context
// to share at every start, whether the tab is ever opened or not.
class HXWebPageView
{
public:
    struct Handlers
    {
        std::function<void(bool ok)>
            loadFinished; // once a load ends, or gives up after its time-out
        std::function<void(const QUrl &)> linkClicked; // a link the user followed; the page stays
    };

    virtual ~HXWebPageView() = default;
    // The view; owned by this object, placed in the caller's layout.
    virtual QWidget *widget() = 0;
    // Loads `url` bypassing any cache; a load not finished
    // `timeoutMilliseconds` after its request went out is stopped and counts
    // as failed. The web engine's own start before that has a separate,
    // larger allowance.
    virtual void load(const QUrl &url, int timeoutMilliseconds) = 0;
    virtual QUrl url() const = 0;
    // Tests: runs a script in the page.
    virtual void runJavaScript(const QString &script) = 0;
};

// The module's one entry point; null where no web view can be shown (the
// offscreen platform).
extern "C" {
using HXMakeWebPageViewFunction = HXWebPageView *(*)(QWidget *parent,
                                                     HXWebPageView::Handlers handlers);
}
#define HX_MAKE_WEB_PAGE_VIEW_SYMBOL "HXMakeWebPageView"
