#pragma once

#include <QtCore/QObject>

class QWidget;

/// What an interface file can't say of the settings view's looks: the labels of all boxes are of one width,
/// so that their fields stand in one column; and the choosers have a light background in a dark palette too,
/// because their prompts are black. Follows the view's palette, font and style. Main thread; lives as long as
/// the view.
class PanelAppearance final : public QObject {
public:
    explicit PanelAppearance(QWidget* view);

    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void alignLabels();
    void colorChoosers();

    QWidget* const view_;
};
