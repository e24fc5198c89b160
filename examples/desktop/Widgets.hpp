#pragma once

#include <QtWidgets/QLabel>
#include <QtWidgets/QProgressBar>
#include <QtWidgets/QPushButton>

class QBoxLayout;
class QLineEdit;

/// The few widgets that the pages of the window share.
namespace desktop
{

/// A sentence about what went wrong; screen readers are told when it speaks.
class ErrorLabel final : public QLabel
{
public:
    enum class Space
    {
        /// Two lines, so that nothing moves when it speaks.
        kept,
        whenNeeded
    };

    explicit ErrorLabel(const char* name, Space space);

    void say(const QString& sentence);

protected:
    void changeEvent(QEvent* event) override;

private:
    void takeColour();

    bool hides_ = false;
};

/// Something is under way, and nobody knows how long it takes.
class BusyBar final : public QProgressBar
{
public:
    BusyBar();
};

QLabel* title(const QString& text);
QLabel* paragraph(const QString& text = {});
/// Smaller and paler.
QLabel* note(const QString& text = {});

/// Return presses it while it has the focus, as Space does.
QPushButton* button(const QString& text, const char* name);
/// The one that Return in a field presses.
QPushButton* mainButton(const QString& text, const char* name);

/// Adds a field with its label above, whose mnemonic leads to it.
void addField(QBoxLayout* column, const QString& label, QLineEdit* field);

/// A column of a readable width in the middle of `page`.
QBoxLayout* centredColumn(QWidget* page);

}  // namespace desktop
