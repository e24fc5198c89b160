#include "Widgets.hpp"

#include <QtCore/QEvent>
#include <QtGui/QAccessible>
#include <QtWidgets/QLineEdit>
#include <QtWidgets/QVBoxLayout>

namespace desktop
{
namespace
{

constexpr int columnInCharacters = 46;

/// Easy to hit, and as high as a field beside it.
int height(const QWidget* control)
{
    return 2 * control->fontMetrics().height();
}

QFont scaled(QFont font, double factor)
{
    font.setPointSizeF(font.pointSizeF() * factor);
    return font;
}

QLabel* wrapped(const QString& text)
{
    auto* label = new QLabel(text);
    label->setWordWrap(true);
    label->setTextFormat(Qt::PlainText);
    return label;
}

}  // namespace

ErrorLabel::ErrorLabel(const char* name, Space space)
{
    setObjectName(name);
    setWordWrap(true);
    // A server's words are words, never mark-up.
    setTextFormat(Qt::PlainText);
    setTextInteractionFlags(Qt::TextSelectableByMouse);
    setAlignment(Qt::AlignLeft | Qt::AlignTop);
    if (space == Space::kept)
        setMinimumHeight(2 * fontMetrics().lineSpacing());
    else
        hide();
    hides_ = space == Space::whenNeeded;
    takeColour();
}

void ErrorLabel::say(const QString& sentence)
{
    setText(sentence);
    setAccessibleName(sentence);
    if (hides_)
        setVisible(!sentence.isEmpty());
    if (sentence.isEmpty())
        return;
    QAccessibleEvent alert(this, QAccessible::Alert);
    QAccessible::updateAccessibility(&alert);
}

void ErrorLabel::changeEvent(QEvent* event)
{
    if (event->type() == QEvent::PaletteChange)
        takeColour();
    QLabel::changeEvent(event);
}

/// A red that can be read on the window's colour.
void ErrorLabel::takeColour()
{
    const bool dark = QPalette().color(QPalette::Window).lightness() < 128;
    const auto red = dark ? QColor(255, 138, 128) : QColor(176, 0, 32);
    auto colours = palette();
    // Setting it is a change of the palette, too.
    if (colours.color(QPalette::WindowText) == red)
        return;
    colours.setColor(QPalette::WindowText, red);
    setPalette(colours);
}

BusyBar::BusyBar()
{
    setRange(0, 0);
    setTextVisible(false);
    setFixedHeight(fontMetrics().height() / 3);
    setAccessibleName(tr("In progress"));
    auto policy = sizePolicy();
    policy.setRetainSizeWhenHidden(true);
    setSizePolicy(policy);
    hide();
}

QLabel* title(const QString& text)
{
    auto* label = wrapped(text);
    constexpr double larger = 1.6;
    auto font = scaled(label->font(), larger);
    font.setWeight(QFont::DemiBold);
    label->setFont(font);
    return label;
}

QLabel* paragraph(const QString& text)
{
    return wrapped(text);
}

QLabel* note(const QString& text)
{
    auto* label = wrapped(text);
    constexpr double smaller = 0.9;
    label->setFont(scaled(label->font(), smaller));
    label->setForegroundRole(QPalette::PlaceholderText);
    return label;
}

QPushButton* button(const QString& text, const char* name)
{
    auto* made = new QPushButton(text);
    made->setObjectName(name);
    made->setAutoDefault(true);
    // Some air on both sides of the words.
    const int width = made->fontMetrics().horizontalAdvance(text);
    made->setMinimumSize(width + height(made), height(made));
    return made;
}

QPushButton* mainButton(const QString& text, const char* name)
{
    auto* made = button(text, name);
    made->setDefault(true);
    const QPalette colours;
    auto own = colours;
    for (const auto group : {QPalette::Active, QPalette::Inactive})
    {
        // Darker, because styles lighten a button, and its words must stay readable.
        constexpr int darker = 150;
        own.setColor(group, QPalette::Button,
                     colours.color(group, QPalette::Highlight).darker(darker));
        own.setColor(group, QPalette::ButtonText, colours.color(group, QPalette::HighlightedText));
    }
    made->setPalette(own);
    return made;
}

void addField(QBoxLayout* column, const QString& label, QLineEdit* field)
{
    auto* text = new QLabel(label);
    text->setBuddy(field);
    field->setMinimumHeight(height(field));
    column->addWidget(text);
    column->addWidget(field);
}

QBoxLayout* centredColumn(QWidget* page)
{
    auto* inner = new QWidget;
    inner->setFixedWidth(columnInCharacters * page->fontMetrics().averageCharWidth());
    auto* row = new QHBoxLayout(page);
    row->addStretch();
    row->addWidget(inner);
    row->addStretch();
    auto* column = new QVBoxLayout(inner);
    column->setContentsMargins({});
    return column;
}

}  // namespace desktop
