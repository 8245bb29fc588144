#include "plugin/TypeToFind.h"

#include <QtGui/QKeyEvent>
#include <QtWidgets/QAbstractItemView>
#include <QtWidgets/QApplication>

#include <algorithm>
#include <limits>

namespace {

constexpr int kNotFound = -1;
constexpr int kNoMatch = std::numeric_limits<int>::max();

/// The text that a key types; empty for keys that mean something else.
QString typedText(const QKeyEvent& key) {
    const auto modifiers = key.modifiers() & ~(Qt::ShiftModifier | Qt::KeypadModifier);
    const QString text = key.text();
    const bool isTyping =
        modifiers == Qt::NoModifier && !text.isEmpty() && text.at(0).category() != QChar::Other_Control;
    return isTyping ? text : QString();
}

bool isOneLetterRepeated(const QString& text) {
    return text.count(text.at(0), Qt::CaseInsensitive) == text.size();
}

/// How well a name answers to `text`: 0 best.
int rank(const QString& name, const QString& text) {
    enum { Beginning, WordsBeginning, Within };
    const auto first = name.indexOf(text, 0, Qt::CaseInsensitive);
    if (first < 0)
        return kNoMatch;
    if (first == 0)
        return Beginning;
    for (auto at = first; at >= 0; at = name.indexOf(text, at + 1, Qt::CaseInsensitive)) {
        if (!name.at(at - 1).isLetterOrNumber())
            return WordsBeginning;
    }
    return Within;
}

/// The item that answers best to `text`, of several the first from `start` on; kNotFound where none does.
int bestMatch(const QComboBox& chooser, const QString& text, int start) {
    const int count = chooser.count();
    int best = kNotFound;
    int bestRank = kNoMatch;
    for (int step = 0; step < count && bestRank > 0; ++step) {
        const int index = (start + step) % count;
        const int itsRank = rank(chooser.itemText(index), text);
        if (itsRank < bestRank) {
            best = index;
            bestRank = itsRank;
        }
    }
    return best;
}

} // namespace

TypeToFind::TypeToFind(QComboBox* chooser)
    : QObject(chooser)
    , chooser_(chooser) {
    chooser->installEventFilter(this);
    chooser->view()->installEventFilter(this);
}

bool TypeToFind::eventFilter(QObject* watched, QEvent* event) {
    if (event->type() != QEvent::KeyPress)
        return QObject::eventFilter(watched, event);
    const QString text = typedText(*static_cast<QKeyEvent*>(event));
    if (text.isEmpty() || !add(text))
        return QObject::eventFilter(watched, event);
    const bool isOpen = chooser_->view()->isVisible();
    const int index = find(isOpen ? chooser_->view()->currentIndex().row() : chooser_->currentIndex());
    if (index != kNotFound)
        goTo(index);
    return true;
}

bool TypeToFind::add(const QString& typed) {
    const bool isLate =
        sinceLastKey_.isValid() && sinceLastKey_.hasExpired(QApplication::keyboardInputInterval());
    if (isLate)
        typed_.clear();
    if (typed_.isEmpty() && typed.trimmed().isEmpty())
        return false;
    typed_ += typed;
    sinceLastKey_.start();
    return true;
}

int TypeToFind::find(int current) const {
    if (typed_.size() > 1) {
        const int found = bestMatch(*chooser_, typed_, std::max(current, 0));
        // Some names do begin with a letter twice.
        if (found != kNotFound || !isOneLetterRepeated(typed_))
            return found;
    }
    return bestMatch(*chooser_, typed_.left(1), current + 1);
}

void TypeToFind::goTo(int index) {
    if (chooser_->view()->isVisible())
        chooser_->view()->setCurrentIndex(chooser_->model()->index(index, chooser_->modelColumn()));
    else
        chooser_->setCurrentIndex(index);
}
