#include "NewsletterPanel.hpp"

#include "AccountObject.hpp"
#include "Widgets.hpp"

#include <QtWidgets/QBoxLayout>

namespace desktop
{

using Status = tessera::Account::NewsletterStatus;

NewsletterPanel::NewsletterPanel(AccountObject& account)
    : QGroupBox(tr("Newsletter")),
      account_(account),
      text_(paragraph()),
      subscribe_(button(tr("S&ubscribe"), "subscribe")),
      error_(new ErrorLabel("newsletterError", ErrorLabel::Space::whenNeeded))
{
    text_->setObjectName("newsletterText");
    auto* row = new QHBoxLayout;
    row->addWidget(text_, 1);
    row->addWidget(subscribe_);
    auto* column = new QVBoxLayout(this);
    column->addLayout(row);
    column->addWidget(error_);

    connect(subscribe_, &QPushButton::clicked, this, &NewsletterPanel::subscribe);
    connect(&account, &AccountObject::newsletterChanged, this, &NewsletterPanel::showStatus);
    showStatus();
}

void NewsletterPanel::showStatus()
{
    const auto status = account_.newsletter();
    error_->say({});
    text_->setText(status == Status::subscribed
                       ? tr("You are subscribed. Thank you!")
                       : tr("News of %1, about once a month.").arg(account_.programName()));
    subscribe_->setVisible(status != Status::subscribed);
    subscribe_->setEnabled(status == Status::idle);
    subscribe_->setText(status == Status::submitting ? tr("Subscribing…") : tr("S&ubscribe"));
}

void NewsletterPanel::subscribe()
{
    account_.subscribe(this, [this](const QString& error) { error_->say(error); });
}

}  // namespace desktop
