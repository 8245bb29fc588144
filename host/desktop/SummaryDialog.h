#pragma once

#include "host/core/ExportJournal.h"
#include "host/desktop/SummaryText.h"

#include <QtWidgets/QDialog>

#include <memory>

namespace host::desktop {

/// What has become of an export, and what can be done about what is left. Main thread.
class SummaryDialog final : public QDialog {
    Q_OBJECT

public:
    /// What the user has decided; `Close` leaves everything as it is.
    enum class Decision { Close, ExportRemaining, AskForConfirmation, Forget };

    /// Holds the journal, so that no other process goes on with the export meanwhile.
    SummaryDialog(std::unique_ptr<ExportJournal> journal, const SummaryText& text, QWidget* parent);

    Decision decision() const { return decision_; }
    std::unique_ptr<ExportJournal> takeJournal() { return std::move(journal_); }

private:
    void addList();
    void addButtons();
    bool confirmsForgetting();
    void decide(Decision decision);

    std::unique_ptr<ExportJournal> journal_;
    Decision decision_ = Decision::Close;
};

} // namespace host::desktop
