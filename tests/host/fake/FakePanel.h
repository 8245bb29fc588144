#pragma once

#include <QtCore/QVariant>
#include <QtWidgets/QCheckBox>
#include <QtWidgets/QComboBox>
#include <QtWidgets/QGroupBox>
#include <QtWidgets/QLabel>
#include <QtWidgets/QLineEdit>
#include <QtWidgets/QPushButton>
#include <QtWidgets/QSlider>
#include <QtWidgets/QWidget>

namespace fake {

/// A settings view with the controls that a host may rely on, and nothing behind them.
class Panel : public QWidget {
public:
    Panel();

    /// Fills the choosers: two events (77 with two categories, 78 whose categories are unknown) and one
    /// template.
    void fillLists();

    QLineEdit* const usernameField;
    QLineEdit* const passwordField;
    QPushButton* const loginButton;
    QCheckBox* const rememberCheckBox;
    QLabel* const loggedInStatusLabel;
    QGroupBox* const settingsBox;
    QComboBox* const eventChooser;
    QComboBox* const pricingChooser;
    QComboBox* const categoryChooser;
    QCheckBox* const autoCreateCategoriesButton;
    QComboBox* const colorspaceChooser;
    QCheckBox* const doResizeButton;
    QLineEdit* const resizeWidth;
    QLineEdit* const resizeHeight;
    QSlider* const qualitySlider;

private:
    template <typename Control>
    Control* add(QLatin1String name) {
        auto* const control = new Control(this);
        control->setObjectName(name);
        return control;
    }
};

} // namespace fake
