#include "HXAccessibility.h"

#include "HXAccessibleAdvice.h"
#include "HXAnimView.h"
#include "HXIconAnimate.h"
#include "HXShapedTextView.h"

#include <QAccessibleWidget>

namespace {

class AccessibleGroupView : public QAccessibleWidget
{
public:
    explicit AccessibleGroupView(HXAnimView *view)
        : QAccessibleWidget(view, QAccessible::Button)
    {
    }

    HXAnimView *view() const { return static_cast<HXAnimView *>(widget()); }

    // Only what a listener needs: the icon, title and status word are the
    // view's own name already, and a bullet's colour is in its test line.
    int childCount() const override { return int(view()->accessibleParts().size()); }
    QAccessibleInterface *child(int index) const override
    {
        QWidget *part = view()->accessibleParts().value(index);
        return part ? QAccessible::queryAccessibleInterface(part) : nullptr;
    }
    int indexOfChild(const QAccessibleInterface *child) const override
    {
        if (!child || !child->object() || !child->object()->isWidgetType())
            return -1;
        return int(view()->accessibleParts().indexOf(static_cast<QWidget *>(child->object())));
    }
    QAccessibleInterface *childAt(int x, int y) const override
    {
        for (QWidget *part : view()->accessibleParts()) {
            QAccessibleInterface *iface = QAccessible::queryAccessibleInterface(part);
            if (iface && !iface->state().invisible && iface->rect().contains(x, y))
                return iface;
        }
        return nullptr;
    }

    QAccessible::State state() const override
    {
        QAccessible::State state = QAccessibleWidget::state();
        state.invisible = state.invisible || view()->isFaded();
        return state;
    }

    QStringList actionNames() const override
    {
        return QStringList(pressAction()) << QAccessibleWidget::actionNames();
    }
    void doAction(const QString &action) override
    {
        if (action == pressAction()) {
            if (view()->isEnabled())
                view()->click();
            return;
        }
        QAccessibleWidget::doAction(action);
    }
    QStringList keyBindingsForAction(const QString &action) const override
    {
        if (action == pressAction())
            return {QStringLiteral("Space"), QStringLiteral("Return")};
        return QAccessibleWidget::keyBindingsForAction(action);
    }
};

class AccessibleLiveIcon : public QAccessibleWidget
{
public:
    explicit AccessibleLiveIcon(HXIconAnimate *icon)
        : QAccessibleWidget(icon, QAccessible::Graphic)
    {
    }
    QAccessible::State state() const override
    {
        QAccessible::State state = QAccessibleWidget::state();
        state.invisible = state.invisible || static_cast<HXIconAnimate *>(widget())->fade() <= 0.0;
        return state;
    }
};

QAccessibleInterface *factory(const QString &className, QObject *object)
{
    if (!object || !object->isWidgetType())
        return nullptr;
    if (className == QLatin1String("HXAnimView"))
        return new AccessibleGroupView(static_cast<HXAnimView *>(object));
    if (className == QLatin1String("HXIconAnimate"))
        return new AccessibleLiveIcon(static_cast<HXIconAnimate *>(object));
    if (className == QLatin1String("HXShapedTextView"))
        return new HXAccessibleAdvice(static_cast<HXShapedTextView *>(object));
    return nullptr;
}

} // namespace

void HXAccessibility::setName(QWidget *widget, const QString &name)
{
    if (widget->accessibleName() == name)
        return;
    widget->setAccessibleName(name);
    QAccessibleEvent event(widget, QAccessible::NameChanged);
    QAccessible::updateAccessibility(&event);
}

void HXAccessibility::install()
{
    static const bool installed = [] {
        QAccessible::installFactory(factory);
        return true;
    }();
    Q_UNUSED(installed);
}
