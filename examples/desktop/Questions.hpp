#pragma once

#include <QtCore/QString>

#include <functional>

class QMessageBox;
class QWidget;

namespace desktop
{

/// What is asked before something that cannot be taken back.
struct Question
{
    const char* name;
    QString text;
    QString explanation;
    /// The button that goes on; Cancel is what Return and Escape mean.
    QString goOn;
};

/// Shows the question on top of the window and returns at once: other work goes on meanwhile. The
/// box removes itself; deleted earlier, it calls nothing.
QMessageBox* ask(QWidget* parent, const Question& question, std::function<void()> onYes);

}  // namespace desktop
