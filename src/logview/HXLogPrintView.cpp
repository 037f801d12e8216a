#include "HXLogPrintView.h"

#include "HXLogCell.h"
#include "HXLogOutlineView.h"
#include "HXLogTreeModel.h"

#include <QCoreApplication>
#include <QHeaderView>
#include <QPainter>
#include <QPdfWriter>
#include <QSaveFile>

namespace {
constexpr int kTypeColumnWidth = 44;
constexpr int kHeaderHeight = 26;
// Points per inch of the copy: the screen's, so that it measures as drawn.
constexpr int kResolution = 96;
// About a twentieth of a second of work each on this machine.
constexpr int kRowsBetweenProgress = 100;
constexpr int kRowsBetweenMeasuringProgress = 2000;
} // namespace

struct HXLogPrintView::Row
{
    QModelIndex index;
    int height;
};

HXLogPrintView::HXLogPrintView(const HXStatusReportRef &report,
                               const std::set<const HXLogEntry *> &expanded)
    : m_report(report)
    , m_model(std::make_unique<HXLogTreeModel>(nullptr))
    , m_outline(std::make_unique<HXLogOutlineView>())
{
    m_model->setArrangement(HXLogTreeModel::Arrangement::ByMessage);
    m_model->setReport(report);
    // Without ligatures, so that a search of the PDF for "files" finds it.
    QFont font = m_outline->font();
    font.setStyleStrategy(QFont::PreferNoShaping);
    m_outline->setFont(font);
    m_outline->setLogModel(m_model.get());
    for (int row = 0; row < m_model->rowCount(); ++row) {
        const QModelIndex index = m_model->index(row, 0);
        const HXLogEntryRef entry = m_model->entryForIndex(index);
        if (entry && expanded.count(entry.get()))
            m_outline->expand(index);
    }
}

HXLogPrintView::~HXLogPrintView() = default;

QList<HXLogPrintView::Row> HXLogPrintView::layoutRows(int width, const Progress &progress) const
{
    QHeaderView *header = m_outline->header();
    const int date = m_outline->dateColumnWidth();
    header->resizeSection(HXLogTreeModel::TypeColumn, kTypeColumnWidth);
    header->resizeSection(HXLogTreeModel::DateColumn, date);
    header->resizeSection(HXLogTreeModel::MessageColumn,
                          std::max(60, width - kTypeColumnWidth - date));

    QStyleOptionViewItem option;
    option.font = m_outline->font();
    option.fontMetrics = QFontMetrics(option.font);
    QList<Row> rows;
    const auto add = [&](const QModelIndex &index) {
        const QModelIndex message = index.siblingAtColumn(HXLogTreeModel::MessageColumn);
        rows.append({index, m_outline->cell()->sizeHint(option, message).height()});
    };
    for (int row = 0; row < m_model->rowCount(); ++row) {
        if (progress && row % kRowsBetweenMeasuringProgress == 0 && !progress(0, 0))
            return {};
        const QModelIndex index = m_model->index(row, 0);
        add(index);
        if (!m_outline->isExpanded(index))
            continue;
        for (int child = 0; child < m_model->rowCount(index); ++child)
            add(m_model->index(child, 0, index));
    }
    return rows;
}

bool HXLogPrintView::render(QPagedPaintDevice *device, const Progress &progress) const
{
    QPainter painter;
    if (!painter.begin(device))
        return false;
    const int width = device->width();
    const int pageHeight = device->height();
    const QList<Row> rows = layoutRows(width, progress);
    if (rows.isEmpty() && m_model->rowCount() > 0) {
        painter.end();
        return false;
    }
    QHeaderView *header = m_outline->header();

    QStyleOptionViewItem option;
    option.font = m_outline->font();
    option.fontMetrics = QFontMetrics(option.font);
    option.palette = m_outline->palette();
    option.state = QStyle::State_Enabled;

    const auto drawHeader = [&] {
        QFont bold = option.font;
        bold.setBold(true);
        painter.save();
        painter.setFont(bold);
        for (const int column :
             {int(HXLogTreeModel::DateColumn), int(HXLogTreeModel::MessageColumn)}) {
            const QRect cell(header->sectionPosition(column) + 4, 0,
                             header->sectionSize(column) - 8, kHeaderHeight - 6);
            painter.drawText(
                cell, Qt::AlignLeft | Qt::AlignVCenter,
                m_model->headerData(column, Qt::Horizontal, Qt::DisplayRole).toString());
        }
        painter.setPen(QColor(0x99, 0x99, 0x99));
        painter.drawLine(0, kHeaderHeight - 3, width, kHeaderHeight - 3);
        painter.restore();
    };

    drawHeader();
    int y = kHeaderHeight;
    int done = 0;
    for (const Row &row : rows) {
        if (progress && done++ % kRowsBetweenProgress == 0 && !progress(done, int(rows.size()))) {
            painter.end();
            return false;
        }
        // A page ends before a row that does not fit whole on it.
        if (y + row.height > pageHeight && y > kHeaderHeight) {
            if (!device->newPage()) {
                painter.end();
                return false;
            }
            drawHeader();
            y = kHeaderHeight;
        }
        for (int column = 0; column < HXLogTreeModel::ColumnCount; ++column) {
            option.rect =
                QRect(header->sectionPosition(column), y, header->sectionSize(column), row.height);
            const QModelIndex index = row.index.siblingAtColumn(column);
            m_outline->cell()->paint(&painter, option, index);
        }
        y += row.height;
    }
    return painter.end();
}

bool HXLogPrintView::saveAsPdf(const QString &path, QString *error, const Progress &progress) const
{
    const auto fail = [&](const QString &reason) {
        if (error)
            *error = reason.isEmpty() ? QString()
                                      : QCoreApplication::translate(
                                            "HXLogPrintView", "The log cannot be written to %1: %2")
                                            .arg(path, reason);
        return false;
    };
    // Written beside the old file and put in its place only when whole: a
    // full disk, a failed write or a stop leaves the old file as it was.
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return fail(file.errorString());
    bool stopped = false;
    bool rendered = false;
    {
        QPdfWriter writer(&file);
        writer.setResolution(kResolution);
        writer.setPageSize(QPageSize(QPageSize::A4));
        writer.setPageMargins(QMarginsF(12, 12, 12, 12), QPageLayout::Millimeter);
        writer.setTitle(QCoreApplication::translate("HXLogPrintView", "Orvex Log"));
        writer.setCreator(QStringLiteral("Orvex"));
        const Progress watched = [&](int done, int total) {
            stopped = progress && !progress(done, total);
            return !stopped;
        };
        rendered = render(&writer, watched);
    }
    if (!rendered) {
        const QString reason =
            file.error() != QFileDevice::NoError
                ? file.errorString()
                : QCoreApplication::translate("HXLogPrintView", "the pages could not be drawn");
        file.cancelWriting();
        return fail(stopped ? QString() : reason);
    }
    if (!file.commit())
        return fail(file.errorString());
    return true;
}
