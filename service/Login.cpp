#include "plugin/Quillmark.h"

#include "platform/RunLoop.h"
#include "plugin/DefaultsKeys.h"
#include "plugin/TextFormat.h"
#include "service/BusyIndicator.h"
#include "service/LoginParser.h"
#include "service/ServiceRequests.h"

namespace {

const QString kLoginTitle = QStringLiteral("Login");
const QString kLogoutTitle = QStringLiteral("Logout");
const QString kLoggedInStatus = QStringLiteral("Logged in as %@");
const QString kLoginFailedStatus = QStringLiteral("Login failed!");
/// What the service means by yes: this text and no other.
constexpr QLatin1String kYes{"1"};

// A control that could not be loaded is told nothing.

void setEnabled(std::initializer_list<QWidget*> controls, bool enabled) {
    for (QWidget* control : controls) {
        if (control)
            control->setEnabled(enabled);
    }
}

void setVisible(std::initializer_list<QWidget*> controls, bool visible) {
    for (QWidget* control : controls) {
        if (control)
            control->setVisible(visible);
    }
}

template <typename Control>
void setText(const QPointer<Control>& control, const QString& text) {
    if (control)
        control->setText(text);
}

QString textOf(const QPointer<QLineEdit>& field) {
    return field ? field->text() : QString();
}

bool isOn(const QPointer<QCheckBox>& box) {
    return box && box->checkState() == Qt::Checked;
}

/// Changes the login record, unless there is none. Workers may be reading it: a changed copy takes its
/// place.
template <typename Change>
void changeRecord(AtomicProperty<std::shared_ptr<Record>>& property, Change&& change) {
    const auto record = property.get();
    if (!record)
        return;
    auto changed = std::make_shared<Record>(*record);
    change(*changed);
    property.set(std::move(changed));
}

/// An absent name leaves none stored.
void saveUserName(hostapi::DefaultsStore& defaults, const std::optional<QString>& userName) {
    if (userName)
        defaults.setValue(defaults_keys::kQuillmarkUsername, *userName);
    else
        defaults.remove(defaults_keys::kQuillmarkUsername);
}

void removePassword(AtomicProperty<std::shared_ptr<Record>>& details) {
    changeRecord(details, [](Record& record) { record.removeText(kPasswordKey); });
}

} // namespace

void Quillmark::authenticate() {
    const QString user = textOf(usernameField);
    const QString password = textOf(passwordField);
    if (user.isEmpty() || password.isEmpty())
        return;
    setEnabled({loginButton, usernameField, passwordField, rememberCheckBox}, false);
    startAnimation(loginProgress);
    changeRecord(loginDetails, [&](Record& details) {
        details.setText(kUsernameKey, user);
        details.setText(kPasswordKey, password);
    });
    setThreadLaunched(true);
    loginThreadRef = platform::Thread::start("login", [self = shared_from_this()] { self->loginThread(); });
    // Without a thread there is no answer either.
    if (!loginThreadRef)
        doneLogin(nullptr);
}

void Quillmark::loginThread() {
    const auto details = loginDetails.get();
    platform::URLLoader loader(environment->configuration.transport);
    auto answer = acceptedAnswer(loader, service_requests::login(environment->configuration.webHost,
                                                                 textOf(details, kUsernameKey),
                                                                 textOf(details, kPasswordKey)));
    std::shared_ptr<Record> result;
    if (answer) {
        LoginParser parser;
        parser.parseData(*answer);
        platform::wipe(*answer);
        result = parser.loginResult();
        // What is already known wins over the answer, a kept record's whole last login included.
        if (const auto known = loginDetails.get()) {
            for (auto entry = known->texts().cbegin(); entry != known->texts().cend(); ++entry)
                result->setText(entry.key(), entry.value());
        }
    }
    if (shouldCancelExport()) {
        cleanupPriorCancel();
        return;
    }
    platform::RunLoop::main()->post([self = shared_from_this(), result] { self->doneLogin(result); });
}

void Quillmark::doneLogin(const std::shared_ptr<Record>& result) {
    stopAnimation(loginProgress);
    if (textOf(result, kSuccessKey) != kYes) {
        removePassword(loginDetails);
        setText(loggedInStatusLabel, kLoginFailedStatus);
        setEnabled({usernameField, passwordField, loginButton, rememberCheckBox}, true);
        setThreadLaunched(false);
        return;
    }
    setText(loggedInStatusLabel, formattedText(kLoggedInStatus, {result->text(kLoggedInNameKey)}));
    setText(loginButton, kLogoutTitle);
    loginDetails.set(result);
    if (isOn(rememberCheckBox)) {
        saveUserName(environment->defaults, result->text(kUsernameKey));
        storePasswordInKeyChain(*result);
        removePassword(loginDetails);
    }
    setVisible({settingsBox, eventBox, pricingBox}, true);
    hiResUploads = result->text(kAllowHighResUploadsKey) == kYes;
    setEnabled({doResizeButton}, hiResUploads);
    updateResizeGUI(!hiResUploads);
    stopAnimation(loginProgress);
    startAnimation(eventLoadingProgress);
    startAnimation(pricingLoadingProgress);
    isLoggedIn = true;
    eventThreadRef =
        platform::Thread::start("event list", [self = shared_from_this()] { self->loadEventThread(); });
    if (!eventThreadRef)
        environment->observer.listsCouldNotBeLoaded();
}

void Quillmark::logOut() {
    setVisible({settingsBox, eventBox, pricingBox}, false);
    const bool remembers = isOn(rememberCheckBox);
    setText(loginButton, kLoginTitle);
    setText(loggedInStatusLabel, QString());
    setEnabled({usernameField, passwordField, rememberCheckBox}, true);
    if (!remembers) {
        setText(usernameField, QString());
        setText(passwordField, QString());
        // No record at all, not an empty one: whoever shares this machine gets no further login from this
        // object.
        loginDetails.set(nullptr);
        unsetSavedCredentials();
    }
    setHideEventControls(true);
    setHidePricingControls(true);
    isLoggedIn = false;
}

void Quillmark::authenticateWithSavedData() {
    auto& defaults = environment->defaults;
    const QString userName = defaults.value(defaults_keys::kQuillmarkUsername).toString();
    if (userName.isEmpty())
        return;
    setText(usernameField, userName);
    if (!defaults.value(defaults_keys::kSavedKeyChain).toBool())
        return;
    const auto password = getPasswordfromKeyChain(userName);
    if (!password || password->isEmpty())
        return;
    setText(passwordField, *password);
    authenticate();
}
