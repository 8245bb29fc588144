#pragma once

#include "host/core/ExportChoices.h"
#include "host/core/Lists.h"

#include <QtCore/QObject>
#include <QtCore/QPointer>
#include <QtWidgets/QCheckBox>
#include <QtWidgets/QComboBox>
#include <QtWidgets/QGroupBox>
#include <QtWidgets/QLabel>
#include <QtWidgets/QLineEdit>
#include <QtWidgets/QPushButton>
#include <QtWidgets/QSlider>

#include <optional>

namespace host {

/// Fills in and presses the controls of a plug-in's settings view as a person would. Main thread.
class PanelDriver : public QObject {
    Q_OBJECT

public:
    /// None, with `error`, where the view lacks a control.
    static std::unique_ptr<PanelDriver> make(QWidget& view, QString& error);

    QString statusText() const;
    QString accountName() const;
    /// A login, or the loading of the lists after it, is going on.
    bool isBusy() const;
    bool isLoggedIn() const;

    void tickRemember();
    /// Types both in and presses the button.
    void logIn(const QString& account, const QString& password);

    /// What the choosers offer.
    Lists lists() const;
    /// Makes the wished choices. The reason where one can't be made, because of the account's lists or
    /// rights.
    std::optional<QString> choose(const WishedChoices& wishes);
    /// What is chosen now, by this driver or by a person.
    ExportChoices choices() const;

Q_SIGNALS:
    /// The login button was enabled or disabled: a login or the loading of the lists began or ended.
    void busyChanged();

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    PanelDriver() = default;
    std::optional<QString> chooseEvent(const QString& idOrName);
    std::optional<QString> choosePricing(const QString& idOrName);
    std::optional<QString> chooseResizeBox(const ResizeBox& box);
    void chooseQuality(int position);

    QPointer<QLineEdit> usernameField_;
    QPointer<QLineEdit> passwordField_;
    QPointer<QPushButton> loginButton_;
    QPointer<QCheckBox> rememberCheckBox_;
    QPointer<QLabel> loggedInStatusLabel_;
    QPointer<QGroupBox> settingsBox_;
    QPointer<QComboBox> eventChooser_;
    QPointer<QComboBox> pricingChooser_;
    QPointer<QComboBox> categoryChooser_;
    QPointer<QCheckBox> autoCreateCategoriesButton_;
    QPointer<QComboBox> colorspaceChooser_;
    QPointer<QCheckBox> doResizeButton_;
    QPointer<QLineEdit> resizeWidth_;
    QPointer<QLineEdit> resizeHeight_;
    QPointer<QSlider> qualitySlider_;
};

} // namespace host
