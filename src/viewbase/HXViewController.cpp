#include "HXViewController.h"

HXViewController::HXViewController(QObject *parent)
    : QObject(parent)
{
}

QString HXViewController::title() const
{
    if (!m_title.isEmpty())
        return m_title;
    QString name = QString::fromLatin1(metaObject()->className());
    if (name.endsWith(QLatin1String("ViewController")))
        name.chop(int(qstrlen("ViewController")));
    return name;
}

QWidget *HXViewController::view()
{
    if (!m_view)
        m_view = makeView();
    return m_view;
}

bool HXViewController::isOnScreen() const
{
    return m_view && m_view->isVisible();
}
