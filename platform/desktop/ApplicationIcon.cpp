#include "ApplicationIcon.h"

#include <QEvent>
#include <QIcon>
#include <QPainter>
#include <QStyle>

namespace ZVPlatform {

ApplicationIcon::ApplicationIcon(QWidget *parent) : QWidget(parent)
{
    refresh();
}

QSize ApplicationIcon::sizeHint() const
{
    const int extent = 2 * style()->pixelMetric(QStyle::PM_LargeIconSize, nullptr, this);
    return {extent, extent};
}

void ApplicationIcon::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    windowIcon().paint(&painter, rect());
}

bool ApplicationIcon::event(QEvent *event)
{
    if (event->type() == QEvent::WindowIconChange)
        refresh();
    return QWidget::event(event);
}

void ApplicationIcon::refresh()
{
    setVisible(!windowIcon().isNull());
    update();
}

} // namespace ZVPlatform
