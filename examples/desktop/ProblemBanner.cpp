#include "ProblemBanner.hpp"

#include "AccountObject.hpp"
#include "Widgets.hpp"

#include <QtWidgets/QHBoxLayout>

namespace desktop
{

using tessera::AccountDiagnosticCode;

ProblemBanner::ProblemBanner(AccountObject& account)
    : account_(account),
      text_(new ErrorLabel("problem", ErrorLabel::Space::whenNeeded)),
      tryAgain_(button(tr("&Try Again"), "problemTryAgain")),
      signInAgain_(button(tr("Sign &In Again"), "problemSignIn"))
{
    setFrameShape(QFrame::StyledPanel);
    auto* row = new QHBoxLayout(this);
    row->addWidget(text_, 1);
    row->addWidget(tryAgain_);
    row->addWidget(signInAgain_);

    connect(tryAgain_, &QPushButton::clicked, this,
            [this]
            {
                tryAgain_->setEnabled(false);
                account_.reload(this, [this](const QString&) { tryAgain_->setEnabled(true); });
            });
    connect(signInAgain_, &QPushButton::clicked, this, [this] { account_.signOut(); });
    connect(&account, &AccountObject::stateChanged, this, &ProblemBanner::showProblem);
    connect(&account, &AccountObject::problemChanged, this, &ProblemBanner::showProblem);
    showProblem();
}

void ProblemBanner::showProblem()
{
    const auto& problem = account_.problem();
    const bool toldBelow = !account_.state().get<tessera::AccountProfile>() &&
                           !account_.state().get<tessera::AccountState::SignedOut>();
    // What has no sentence is nothing that the user could do something about; and information that
    // was not stored is fetched again by itself.
    const bool isForUser = problem && !problem->message.empty() &&
                           problem->code != AccountDiagnosticCode::infoNotStored;
    setVisible(isForUser && !toldBelow);
    if (!isForUser)
        return;
    text_->say(QString::fromStdString(problem->message));
    tryAgain_->setVisible(problem->code == AccountDiagnosticCode::refreshFailed);
    signInAgain_->setVisible(problem->code == AccountDiagnosticCode::sessionRefused);
}

}  // namespace desktop
