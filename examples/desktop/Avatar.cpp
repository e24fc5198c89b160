#include "Avatar.hpp"

#include <QtGui/QPainter>

namespace desktop
{

Avatar::Avatar()
{
    const int size = 3 * fontMetrics().height();
    setFixedSize(size, size);
}

void Avatar::setName(const QString& name)
{
    letter_ = name.left(1).toUpper();
    update();
}

void Avatar::paintEvent(QPaintEvent*)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(palette().highlight());
    painter.drawEllipse(rect());
    auto large = font();
    large.setPixelSize(height() / 2);
    painter.setFont(large);
    painter.setPen(palette().highlightedText().color());
    painter.drawText(rect(), Qt::AlignCenter, letter_);
}

}  // namespace desktop
