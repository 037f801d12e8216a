// orvex-manual: turns the project's Markdown manual into the PDF shipped with
// the application. Run at build time: orvex-manual MANUAL.md OUTPUT.pdf
#include <QFile>
#include <QGuiApplication>
#include <QPdfWriter>
#include <QTextDocument>

#include <cstdio>

int main(int argc, char **argv)
{
    QGuiApplication app(argc, argv);
    const QStringList args = QCoreApplication::arguments();
    if (args.size() != 3) {
        std::fputs("Usage: orvex-manual MANUAL.md OUTPUT.pdf\n", stderr);
        return 2;
    }
    QFile markdown(args[1]);
    if (!markdown.open(QIODevice::ReadOnly)) {
        std::fprintf(stderr, "orvex-manual: cannot read %s\n", qPrintable(args[1]));
        return 1;
    }
    QTextDocument document;
    QFont font(QStringLiteral("DejaVu Sans"));
    font.setPointSize(10);
    // No ligatures: a search of the PDF must find what the text says.
    font.setStyleStrategy(QFont::PreferNoShaping);
    document.setDefaultFont(font);
    document.setMarkdown(QString::fromUtf8(markdown.readAll()));

    QPdfWriter writer(args[2]);
    writer.setTitle(QStringLiteral("Orvex Manual"));
    writer.setCreator(QStringLiteral("Orvex"));
    writer.setPageSize(QPageSize(QPageSize::A4));
    writer.setPageMargins(QMarginsF(20, 20, 20, 20), QPageLayout::Millimeter);
    document.print(&writer);
    if (QFile(args[2]).size() == 0) {
        std::fprintf(stderr, "orvex-manual: nothing was written to %s\n", qPrintable(args[2]));
        return 1;
    }
    return 0;
}
