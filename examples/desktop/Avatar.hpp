#pragma once

#include <QtWidgets/QWidget>

namespace desktop
{

/// The first letter of a name on a disc, in the colours of the palette.
class Avatar final : public QWidget
{
public:
    Avatar();

    void setName(const QString& name);

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    QString letter_;
};

}  // namespace desktop
