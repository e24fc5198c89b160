#include "Questions.hpp"

#include <QtWidgets/QMessageBox>
#include <QtWidgets/QPushButton>

namespace desktop
{

QMessageBox* ask(QWidget* parent, const Question& question, std::function<void()> onYes)
{
    auto* box =
        new QMessageBox(QMessageBox::NoIcon, QString(), question.text, QMessageBox::Cancel, parent);
    box->setObjectName(question.name);
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->setInformativeText(question.explanation);
    auto* goOn = box->addButton(question.goOn, QMessageBox::DestructiveRole);
    goOn->setObjectName("goOn");
    box->setDefaultButton(QMessageBox::Cancel);
    box->setEscapeButton(QMessageBox::Cancel);
    box->button(QMessageBox::Cancel)->setIcon({});
    QObject::connect(goOn, &QPushButton::clicked, box, std::move(onYes));
    box->open();
    return box;
}

}  // namespace desktop
