#include "HXAccessibleAdvice.h"

#include "HXShapedTextView.h"

#include <QScrollArea>
#include <QTextBlock>

namespace {

// One link of the advice: its words, and pressing it opens what it points to.
class AccessibleLink : public QAccessibleInterface, public QAccessibleActionInterface
{
public:
    AccessibleLink(HXAccessibleAdvice *advice, HXShapedTextView::Link link)
        : m_advice(advice)
        , m_view(advice->view())
        , m_link(std::move(link))
    {
    }

    bool isValid() const override { return !m_view.isNull(); }
    QObject *object() const override { return nullptr; }
    QWindow *window() const override { return m_advice->window(); }
    QAccessibleInterface *parent() const override { return m_advice; }
    QAccessibleInterface *child(int) const override { return nullptr; }
    int childCount() const override { return 0; }
    int indexOfChild(const QAccessibleInterface *) const override { return -1; }
    QAccessibleInterface *childAt(int, int) const override { return nullptr; }
    QAccessibleInterface *focusChild() const override { return nullptr; }

    QString text(QAccessible::Text t) const override
    {
        if (t == QAccessible::Name)
            return m_link.text;
        if (t == QAccessible::Description)
            return m_link.href;
        return {};
    }
    void setText(QAccessible::Text, const QString &) override {}
    QRect rect() const override
    {
        if (!m_view)
            return {};
        const QRect local = m_view->textRect(m_link.start, m_link.length).toAlignedRect();
        return QRect(m_view->mapToGlobal(local.topLeft()), local.size());
    }
    QAccessible::Role role() const override { return QAccessible::Link; }
    QAccessible::State state() const override
    {
        QAccessible::State state;
        state.linked = true;
        state.invisible = m_advice->state().invisible;
        // Tab reaches every link.
        state.focusable = true;
        state.focused =
            m_view && m_view->hasFocus() && m_view->focusedLink() == m_advice->indexOfChild(this);
        return state;
    }

    void *interface_cast(QAccessible::InterfaceType type) override
    {
        return type == QAccessible::ActionInterface
                   ? static_cast<QAccessibleActionInterface *>(this)
                   : nullptr;
    }
    QStringList actionNames() const override { return {pressAction()}; }
    void doAction(const QString &action) override
    {
        if (action == pressAction() && m_view)
            m_view->activateLink(m_link.href);
    }
    QStringList keyBindingsForAction(const QString &) const override { return {}; }

private:
    HXAccessibleAdvice *m_advice;
    QPointer<HXShapedTextView> m_view;
    HXShapedTextView::Link m_link;
};

} // namespace

HXAccessibleAdvice::HXAccessibleAdvice(HXShapedTextView *view)
    : QAccessibleWidget(view, QAccessible::EditableText)
{
}

HXAccessibleAdvice::~HXAccessibleAdvice()
{
    dropLinks();
}

HXShapedTextView *HXAccessibleAdvice::view() const
{
    return static_cast<HXShapedTextView *>(widget());
}

void *HXAccessibleAdvice::interface_cast(QAccessible::InterfaceType type)
{
    if (type == QAccessible::TextInterface)
        return static_cast<QAccessibleTextInterface *>(this);
    return QAccessibleWidget::interface_cast(type);
}

QAccessible::State HXAccessibleAdvice::state() const
{
    QAccessible::State state = QAccessibleWidget::state();
    state.readOnly = true;
    state.multiLine = true;
    state.invisible = state.invisible || view()->textOpacity() <= 0.0;
    return state;
}

void HXAccessibleAdvice::dropLinks() const
{
    for (const QAccessible::Id id : m_links)
        QAccessible::deleteAccessibleInterface(id);
    m_links.clear();
}

void HXAccessibleAdvice::refreshLinks() const
{
    QTextDocument *document = view()->document();
    const int revision = document ? document->revision() : -1;
    if (document == m_linksOf && revision == m_linksRevision && (document || m_links.empty()))
        return;
    dropLinks();
    m_linksOf = document;
    m_linksRevision = revision;
    auto *self = const_cast<HXAccessibleAdvice *>(this);
    for (HXShapedTextView::Link &link : view()->links())
        m_links.push_back(
            QAccessible::registerAccessibleInterface(new AccessibleLink(self, std::move(link))));
}

// The open group view stands in the advice, after the links.
int HXAccessibleAdvice::childCount() const
{
    refreshLinks();
    return int(m_links.size()) + QAccessibleWidget::childCount();
}

QAccessibleInterface *HXAccessibleAdvice::child(int index) const
{
    refreshLinks();
    if (index >= 0 && size_t(index) < m_links.size())
        return QAccessible::accessibleInterface(m_links[size_t(index)]);
    return QAccessibleWidget::child(index - int(m_links.size()));
}

int HXAccessibleAdvice::indexOfChild(const QAccessibleInterface *child) const
{
    refreshLinks();
    for (size_t i = 0; i < m_links.size(); ++i) {
        if (QAccessible::accessibleInterface(m_links[i]) == child)
            return int(i);
    }
    const int widgetIndex = QAccessibleWidget::indexOfChild(child);
    return widgetIndex < 0 ? -1 : widgetIndex + int(m_links.size());
}

void HXAccessibleAdvice::selection(int, int *startOffset, int *endOffset) const
{
    *startOffset = *endOffset = 0;
}

QString HXAccessibleAdvice::text(int startOffset, int endOffset) const
{
    return view()->plainText().mid(startOffset, endOffset - startOffset);
}

int HXAccessibleAdvice::characterCount() const
{
    return int(view()->plainText().size());
}

QRect HXAccessibleAdvice::characterRect(int offset) const
{
    const QRect local = view()->textRect(offset, 1).toAlignedRect();
    return local.isNull() ? QRect() : QRect(view()->mapToGlobal(local.topLeft()), local.size());
}

int HXAccessibleAdvice::offsetAtPoint(const QPoint &point) const
{
    return view()->positionAt(view()->mapFromGlobal(point));
}

void HXAccessibleAdvice::scrollToSubstring(int startIndex, int endIndex)
{
    const QRect local =
        view()->textRect(startIndex, std::max(1, endIndex - startIndex)).toAlignedRect();
    for (QWidget *up = view()->parentWidget(); up; up = up->parentWidget()) {
        if (auto *scroll = qobject_cast<QScrollArea *>(up)) {
            scroll->ensureVisible(local.center().x(), local.center().y(), 0, local.height());
            return;
        }
    }
}

QString HXAccessibleAdvice::attributes(int offset, int *startOffset, int *endOffset) const
{
    *startOffset = offset;
    *endOffset = offset;
    return {};
}
