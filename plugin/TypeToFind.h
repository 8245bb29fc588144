#pragma once

#include <QtCore/QElapsedTimer>
#include <QtCore/QObject>
#include <QtWidgets/QComboBox>

/// Lets a person find an item of a long list by typing a part of its name, in the closed chooser as well as
/// in its open list. A name that begins with the typed text comes before one with a word that does, and that
/// before one that contains it anywhere. A pause begins a new text, and one letter again and again goes from
/// name to name. Main thread; lives as long as its chooser, which must not be editable.
class TypeToFind final : public QObject {
public:
    explicit TypeToFind(QComboBox* chooser);

    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    /// Adds to the typed text; false for a space that does not continue one.
    bool add(const QString& typed);
    /// The item that the typed text means; -1 where none has it.
    int find(int current) const;
    void goTo(int index);

    QComboBox* const chooser_;
    QString typed_;
    QElapsedTimer sinceLastKey_;
};
