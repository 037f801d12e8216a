// Screenshots of the about window, the about tab's offline picture and the
// three update alerts, for a person
// to look at: about_shots FOLDER. Run under xvfb-run.
#include "HXAboutWindowController.h"
#include "HXArtwork.h"
#include "HXOfflinePicture.h"
#include "HXUpdateCheck.h"

#include <QApplication>
#include <QMessageBox>
#include <QTimer>
#include <cstdio>

namespace {

// Saves the next modal box to `file` and closes it.
void grabNextAlert(const QString &file)
{
    QTimer::singleShot(400, [file] {
        QWidget *box = QApplication::activeModalWidget();
        if (!box) {
            grabNextAlert(file);
            return;
        }
        box->grab().save(file);
        std::printf("saved %s\n", qPrintable(file));
        box->close();
    });
}

} // namespace

int main(int argc, char **argv)
{
    QApplication app(argc, argv);
    QCoreApplication::setApplicationVersion(QStringLiteral(ORVEX_VERSION));
    HXArtwork::loadFonts();
    const QString folder = argc > 1 ? QString::fromLocal8Bit(argv[1]) : QStringLiteral(".");

    // The offline picture at the About tab's size.
    HXOfflinePicture picture(QStringLiteral(ORVEX_VERSION));
    picture.resize(904, 578);
    picture.grab().save(folder + QStringLiteral("/about-tab-offline.png"));
    std::printf("saved about-tab-offline.png\n");

    HXAboutWindowController about(QStringLiteral("87"));
    about.setAttribute(Qt::WA_DeleteOnClose, false);
    about.show();
    QTimer::singleShot(600, [&] {
        about.grab().save(folder + QStringLiteral("/about-window.png"));
        std::printf("saved about-window.png\n");
        about.close();

        HXUpdateRecords::Reply reply;
        reply.productName = QStringLiteral("Orvex");
        reply.version = HXUpdateCheck::valueFromHexidecimalString(QStringLiteral("0.2.0"));
        reply.url = QStringLiteral("http://www.talvorn.example/orvex/");
        reply.build = QStringLiteral("120");
        grabNextAlert(folder + QStringLiteral("/about-alert-update.png"));
        HXUpdateCheck::alertUserToAvailableUpdate(reply);
        reply.version = HXUpdateCheck::valueFromHexidecimalString(QStringLiteral(ORVEX_VERSION));
        grabNextAlert(folder + QStringLiteral("/about-alert-noupdate.png"));
        HXUpdateCheck::alertUserOfNoUpdate(reply);
        grabNextAlert(folder + QStringLiteral("/about-alert-error.png"));
        HXUpdateCheck::alertUserOfFailure();
        QCoreApplication::quit();
    });
    return app.exec();
}
