#include "HXWebPageModule.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QLibrary>

QString HXWebPageModule::path()
{
    const QString chosen = qEnvironmentVariable("ORVEX_WEBPAGE_MODULE");
    if (!chosen.isEmpty())
        return chosen;
#ifdef ORVEX_WEBENGINE
    const QString installed = QStringLiteral(ORVEX_WEBPAGE_MODULE_INSTALLED);
    const bool isInstalled =
        QDir(QCoreApplication::applicationDirPath()) == QDir(QStringLiteral(ORVEX_INSTALL_BINDIR));
    if (isInstalled || !QFileInfo::exists(QStringLiteral(ORVEX_WEBPAGE_MODULE_BUILT)))
        return installed;
    return QStringLiteral(ORVEX_WEBPAGE_MODULE_BUILT);
#else
    return QString();
#endif
}

HXMakeWebPageViewFunction HXWebPageModule::factory(QString *error)
{
#ifdef ORVEX_WEBENGINE
    static QLibrary *library = nullptr;
    static HXMakeWebPageViewFunction make = nullptr;
    if (make)
        return make;
    if (!library) {
        // Never unloaded: Chromium's threads outlive any one view.
        library = new QLibrary(path());
        library->setLoadHints(QLibrary::PreventUnloadHint);
    }
    make =
        reinterpret_cast<HXMakeWebPageViewFunction>(library->resolve(HX_MAKE_WEB_PAGE_VIEW_SYMBOL));
    if (!make && error)
        *error = library->errorString();
    return make;
#else
    if (error)
        *error = QStringLiteral("built without Qt WebEngine");
    return nullptr;
#endif
}
