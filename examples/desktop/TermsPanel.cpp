#include "TermsPanel.hpp"

#include "AccountObject.hpp"
#include "Widgets.hpp"

#include <QtGui/QDesktopServices>
#include <QtWidgets/QBoxLayout>

namespace desktop
{

TermsPanel::TermsPanel(AccountObject& account)
    : QGroupBox(tr("Terms of use")),
      account_(account),
      text_(paragraph()),
      accept_(mainButton(tr("&Accept"), "acceptTerms")),
      error_(new ErrorLabel("termsError", ErrorLabel::Space::whenNeeded))
{
    setObjectName("terms");
    text_->setObjectName("termsText");
    auto* read = button(tr("&Read…"), "readTerms");
    read->setAccessibleName(tr("Read the terms in the browser"));

    auto* row = new QHBoxLayout;
    row->addWidget(text_, 1);
    row->addWidget(read);
    row->addWidget(accept_);
    auto* column = new QVBoxLayout(this);
    column->addLayout(row);
    column->addWidget(error_);

    connect(read, &QPushButton::clicked, this,
            [this] { QDesktopServices::openUrl(account_.website()); });
    connect(accept_, &QPushButton::clicked, this, &TermsPanel::accept);
    connect(&account, &AccountObject::stateChanged, this, &TermsPanel::showTerms);
    showTerms();
}

void TermsPanel::showTerms()
{
    const auto* profile = account_.state().get<tessera::AccountProfile>();
    const bool asks = profile && profile->info().terms.needsConsent();
    setVisible(asks);
    if (!asks)
        return;
    const auto& terms = profile->info().terms;
    const auto revision = QString::fromStdString(terms.currentRevision);
    text_->setText(
        terms.acceptedRevision.empty()
            ? tr("Please read and accept the terms of %1.").arg(revision)
            : tr("The terms have changed. Please read and accept those of %1.").arg(revision));
}

void TermsPanel::accept()
{
    setBusy(true);
    account_.acceptTerms(this,
                         [this](const QString& error)
                         {
                             setBusy(false);
                             error_->say(error);
                         });
}

void TermsPanel::setBusy(bool busy)
{
    error_->say({});
    accept_->setEnabled(!busy);
    accept_->setText(busy ? tr("Accepting…") : tr("&Accept"));
}

}  // namespace desktop
