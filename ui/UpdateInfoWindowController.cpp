#include "UpdateInfoWindowController.h"

#include "../platform/desktop/ApplicationIcon.h"
#include "../platform/desktop/KeyGuard.h"
#include "../platform/desktop/PlainTextView.h"
#include "../platform/desktop/PowerOffObserver.h"
#include "../platform/desktop/WindowLayout.h"
#include "../platform/desktop/WindowSystem.h"
#include "../platform/files/Files.h"
#include "../platform/settings/Bundle.h"
#include "../platform/settings/Locale.h"
#include "../platform/settings/Text.h"
#include "../preferences/UpdatePreferences.h"
#include "VerticalCenterTextField.h"

#include <QCheckBox>
#include <QDialog>
#include <QLabel>
#include <QPushButton>
#include <QScrollBar>
#include <QShortcut>
#include <QTextEdit>

using namespace ZVPlatform;

namespace {

// The bundle of the first language that the user prefers and the library has; the library's own
// bundle when there is none, and then the keys themselves are the texts.
Bundle languageBundle()
{
    const Bundle base = Bundle::framework();
    const QStringList localizations = base.localizations();
    const QStringList preferred = preferredLanguages();
    for (const QString &language : preferred) {
        if (localizations.contains(language))
            return Bundle(*base.pathForResource(language, QStringLiteral("lproj")));
    }
    return base;
}

// Texts appear letter for letter. The keys that press a button come from the layout, so that no
// text has to mark one; giving the button a text would take them away.
void setTitle(QAbstractButton *button, const QString &title)
{
    if (!button)
        return;
    const QKeySequence shortcut = button->shortcut();
    button->setText(QString(title).replace(QLatin1String("&"), QLatin1String("&&")));
    button->setShortcut(shortcut);
    button->setAccessibleDescription(shortcut.toString(QKeySequence::NativeText));
}

void setStringValue(QLabel *field, const QString &value)
{
    if (!field)
        return;
    field->setTextFormat(Qt::PlainText);
    field->setText(value);
}

// Qt puts a mark of its own in the place of "[*]", unless that is doubled.
void setWindowTitle(QDialog *window, const QString &title)
{
    if (window)
        window->setWindowTitle(
            QString(title).replace(QLatin1String("[*]"), QLatin1String("[*][*]")));
}

// The keys that turn pages do so wherever the focus is.
void scrollByKeys(QDialog *window, QScrollBar *bar)
{
    for (const auto &[key, action] : {std::pair(Qt::Key_PageUp, QScrollBar::SliderPageStepSub),
                                      std::pair(Qt::Key_PageDown, QScrollBar::SliderPageStepAdd)})
        QObject::connect(new QShortcut(key, window), &QShortcut::activated, bar,
                         [bar, action = action] { bar->triggerAction(action); });
}

} // namespace

UpdateInfoWindowController::UpdateInfoWindowController(const QString &windowNibName)
    : windowNibName_(windowNibName)
{
}

UpdateInfoWindowController::~UpdateInfoWindowController()
{
    if (window_)
        WindowSystem::discard(window_);
}

QDialog *UpdateInfoWindowController::window()
{
    if (!isLoaded_ && WindowSystem::isAvailable()) {
        isLoaded_ = true;
        loadWindow();
    }
    return window_;
}

void UpdateInfoWindowController::reloadWindow()
{
    const Bundle bundle = languageBundle();
    const auto localized = [&bundle](const char *key) {
        return bundle.localizedString(QString::fromLatin1(key), QStringLiteral("Localizable"));
    };
    const QString product = describe(mProductName());
    const QString whatsNew = localized("What's new ?");
    const QString headline =
        QStringList{localized("The latest version"), product, describe(mUpdateProductVersion()),
                    localized("is ready to install now.")}
            .join(QLatin1Char(' '));

    setTitle(dontReminedMe_, localized("Do not update.  Don't ask me again."));
    setStringValue(updateInfoTitleTextField_, whatsNew);
    // The window is loaded here at the latest, which fills it; what follows is then repeated.
    setWindowTitle(window(), product + QLatin1Char(' ') + localized("Update"));
    setStringValue(updateTitleTextField_, headline);
    setTitle(notNowButton_, localized("Not now"));
    // From the default table, whichever that is.
    setTitle(updateButton_, bundle.localizedString(QStringLiteral("Update")));
    const QString notes = mUpdateInfo().value_or(QString());
    const bool hasNotes = !notes.trimmed().isEmpty();
    if (updateInfoTitleTextField_)
        updateInfoTitleTextField_->setVisible(hasNotes);
    if (updateInfoTextField_) {
        PlainTextView::setText(updateInfoTextField_, notes);
        updateInfoTextField_->setAccessibleName(whatsNew);
        updateInfoTextField_->setVisible(hasNotes);
    }
    if (auto *headlineField = qobject_cast<VerticalCenterTextField *>(updateTitleTextField_))
        headlineField->setShrinkingPart(product);
    if (updateButton_)
        updateButton_->setDefault(true);
    if (window_)
        window_->setAccessibleDescription(headline);
}

void UpdateInfoWindowController::showWindow()
{
    if (QDialog *window = this->window())
        WindowSystem::show(window);
}

void UpdateInfoWindowController::takePlaceOf(const UpdateInfoWindowController &former)
{
    const bool wasShown = former.window_ && former.window_->windowHandle();
    if (QDialog *window = wasShown ? this->window() : nullptr)
        window->move(former.window_->pos());
}

void UpdateInfoWindowController::updateAction()
{
    const auto path = mUpdateFilePath();
    if (!path || !Files::exists(*path))
        return;
    // A host may have taken the opening of files upon itself, and do anything then.
    const QPointer self(this);
    WindowSystem::openFile(*path);
    if (self)
        closeAndTell(1);
}

void UpdateInfoWindowController::cancelAction()
{
    if (dontReminedMe_ && dontReminedMe_->checkState() == Qt::Checked) {
        UpdatePreferences::setAutomaticUpdating(false);
        UpdatePreferences::synchronise();
    }
    closeAndTell(0);
}

void UpdateInfoWindowController::systemPowerOffNotification()
{
    // Whoever watches the window close may destroy this controller.
    const QPointer<QDialog> window = window_;
    if (window)
        window->close();
    if (window)
        window->hide(); // Also when something has refused.
}

void UpdateInfoWindowController::windowWillClose()
{
    if (window_)
        window_->hide();
}

void UpdateInfoWindowController::setDelegate(UpdateInfoWindowControllerDelegate *delegate)
{
    delegate_ = DelegateRef(delegate);
}

QPushButton *UpdateInfoWindowController::updateButton() const
{
    return updateButton_;
}

void UpdateInfoWindowController::setUpdateButton(QPushButton *button)
{
    updateButton_ = button;
}

QPushButton *UpdateInfoWindowController::notNowButton() const
{
    return notNowButton_;
}

void UpdateInfoWindowController::setNotNowButton(QPushButton *button)
{
    notNowButton_ = button;
}

QCheckBox *UpdateInfoWindowController::dontReminedMe() const
{
    return dontReminedMe_;
}

void UpdateInfoWindowController::setDontReminedMe(QCheckBox *box)
{
    dontReminedMe_ = box;
}

QTextEdit *UpdateInfoWindowController::updateInfoTextField() const
{
    return updateInfoTextField_;
}

void UpdateInfoWindowController::setUpdateInfoTextField(QTextEdit *field)
{
    updateInfoTextField_ = field;
}

QLabel *UpdateInfoWindowController::updateInfoTitleTextField() const
{
    return updateInfoTitleTextField_;
}

void UpdateInfoWindowController::setUpdateInfoTitleTextField(QLabel *field)
{
    updateInfoTitleTextField_ = field;
}

QLabel *UpdateInfoWindowController::updateTitleTextField() const
{
    return updateTitleTextField_;
}

void UpdateInfoWindowController::setUpdateTitleTextField(QLabel *field)
{
    updateTitleTextField_ = field;
}

// Connects what the layout holds; a part that it lacks stays null.
void UpdateInfoWindowController::loadWindow()
{
    const auto layout = Bundle::framework().pathForResource(windowNibName_, QStringLiteral("ui"));
    if (layout)
        window_ = WindowLayout::load(
            *layout,
            {{QStringLiteral("VerticalCenterTextField"),
              [](QWidget *parent) -> QWidget * { return new VerticalCenterTextField(parent); }},
             {QStringLiteral("ApplicationIcon"),
              [](QWidget *parent) -> QWidget * { return new ApplicationIcon(parent); }},
             {QStringLiteral("PlainTextView"),
              [](QWidget *parent) -> QWidget * { return new PlainTextView(parent); }}});
    if (!window_)
        return;

    updateButton_ = window_->findChild<QPushButton *>(QStringLiteral("updateButton"));
    notNowButton_ = window_->findChild<QPushButton *>(QStringLiteral("notNowButton"));
    dontReminedMe_ = window_->findChild<QCheckBox *>(QStringLiteral("dontReminedMe"));
    updateInfoTextField_ = window_->findChild<QTextEdit *>(QStringLiteral("updateInfoTextField"));
    updateInfoTitleTextField_ =
        window_->findChild<QLabel *>(QStringLiteral("updateInfoTitleTextField"));
    updateTitleTextField_ = window_->findChild<QLabel *>(QStringLiteral("updateTitleTextField"));
    awakeFromNib();
}

void UpdateInfoWindowController::awakeFromNib()
{
    using Self = UpdateInfoWindowController;
    connect(window_, &QDialog::finished, this, &Self::windowWillClose);
    if (notNowButton_)
        connect(notNowButton_, &QPushButton::clicked, this, &Self::cancelAction);
    if (updateButton_) {
        connect(updateButton_, &QPushButton::clicked, this, &Self::updateAction);
        // Some desktops let Return press the button that has the focus; here it means "Update".
        for (const Qt::Key key : {Qt::Key_Return, Qt::Key_Enter})
            connect(new QShortcut(key, window_), &QShortcut::activated, updateButton_,
                    &QPushButton::click);
        updateButton_->setFocus();
    }
    if (updateInfoTextField_)
        scrollByKeys(window_, updateInfoTextField_->verticalScrollBar());
    new KeyGuard(window_); // Owned by the window.
    reloadWindow();
    const auto *observer = new PowerOffObserver(window_);
    connect(observer, &PowerOffObserver::powerOffImminent, this, &Self::systemPowerOffNotification);
}

// The last thing that an action does: who hears of it may destroy this controller, and so may
// whoever watches the window close.
void UpdateInfoWindowController::closeAndTell(uint64_t action)
{
    const auto delegate = delegate_;
    if (window_)
        window_->close();
    if (UpdateInfoWindowControllerDelegate *receiver = delegate.get())
        receiver->infoWindowClosedActions(action);
}
