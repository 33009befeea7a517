#include "UpdateInfoWindowController.h"

#include "../platform/desktop/ApplicationIcon.h"
#include "../platform/desktop/KeyGuard.h"
#include "../platform/desktop/PlainTextView.h"
#include "../platform/desktop/PowerOffObserver.h"
#include "../platform/desktop/WindowLayout.h"
#include "../platform/desktop/WindowSystem.h"
#include "../platform/files/Files.h"
#include "../platform/files/InstallerLink.h"
#include "../platform/settings/Bundle.h"
#include "../platform/settings/Locale.h"
#include "../platform/settings/Text.h"
#include "../platform/threads/Guarded.h"
#include "../preferences/UpdatePreferences.h"
#include "VerticalCenterTextField.h"

#include <QCheckBox>
#include <QDialog>
#include <QFile>
#include <QLabel>
#include <QPointer>
#include <QPushButton>
#include <QScrollBar>
#include <QShortcut>
#include <QTextEdit>

using namespace ZVPlatform;

namespace {

// The bundle of the first language that the user prefers and a bundle has; the bundle itself when
// there is none, and then the keys themselves are the texts.
Bundle languageBundle(const Bundle &base)
{
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

/// The parts of the window, and what is shown in them.
struct UpdateInfoWindowController::Private
{
    Private(UpdateInfoWindowController *controller, QString windowNibName, Bundle bundle)
        : self(controller), windowNibName_(std::move(windowNibName)), bundle_(std::move(bundle))
    {
    }

    void loadWindow();
    void awakeFromNib();
    bool isVisible() const { return window_ && window_->isVisible(); }
    void tellPlace(const QString &path);
    bool isRight(const QString &path) const { return !fileCheck_ || fileCheck_(path); }
    void refuse();
    void closeAndTell(uint64_t action);

    UpdateInfoWindowController *const self;
    const QString windowNibName_;
    const Bundle bundle_;
    bool isActing_ = false; // "Update" has been chosen, and is not dealt with yet.
    QString place_;         // Of an installer that no program opens; empty otherwise.
    bool isLoaded_ = false; // Or it has been tried; it is not tried again.
    std::function<bool(const QString &)> fileCheck_;
    QPointer<QDialog> window_;
    QPointer<QPushButton> updateButton_;
    QPointer<QPushButton> notNowButton_;
    QPointer<QCheckBox> dontReminedMe_;
    QPointer<QTextEdit> updateInfoTextField_;
    QPointer<QLabel> updateInfoTitleTextField_;
    QPointer<QLabel> updateTitleTextField_;
    Guarded<std::optional<QString>> mProductName_;
    Guarded<std::optional<QString>> mUpdateProductVersion_;
    Guarded<std::optional<QString>> mUpdateInfo_;
    Guarded<std::optional<QString>> mUpdateFilePath_;
    DelegateRef<UpdateInfoWindowControllerDelegate> delegate_;
};

UpdateInfoWindowController::UpdateInfoWindowController(const QString &windowNibName,
                                                       const std::optional<QString> &bundlePath)
    : d_(std::make_unique<Private>(this, windowNibName,
                                   bundlePath ? Bundle(*bundlePath) : Bundle::framework()))
{
}

UpdateInfoWindowController::~UpdateInfoWindowController()
{
    if (d_->window_)
        WindowSystem::discard(d_->window_);
}

QDialog *UpdateInfoWindowController::window()
{
    if (!d_->isLoaded_ && WindowSystem::isAvailable()) {
        d_->isLoaded_ = true;
        d_->loadWindow();
    }
    return d_->window_;
}

void UpdateInfoWindowController::reloadWindow()
{
    const Bundle bundle = languageBundle(d_->bundle_);
    const auto localized = [&bundle](const char *key) {
        return bundle.localizedString(QString::fromLatin1(key), QStringLiteral("Localizable"));
    };
    const QString product = describe(mProductName());
    const QString whatsNew = localized("What's new ?");
    const QString headline =
        QStringList{localized("The latest version"), product, describe(mUpdateProductVersion()),
                    localized("is ready to install now.")}
            .join(QLatin1Char(' '));

    setTitle(d_->dontReminedMe_, localized("Do not update.  Don't ask me again."));
    setStringValue(d_->updateInfoTitleTextField_, whatsNew);
    // The window is loaded here at the latest, which fills it; what follows is then repeated.
    setWindowTitle(window(), product + QLatin1Char(' ') + localized("Update"));
    setStringValue(d_->updateTitleTextField_, headline);
    setTitle(d_->notNowButton_, localized("Not now"));
    // From the default table, whichever that is.
    setTitle(d_->updateButton_, bundle.localizedString(QStringLiteral("Update")));
    const QString notes = mUpdateInfo().value_or(QString());
    const bool hasNotes = !notes.trimmed().isEmpty();
    d_->place_.clear();
    if (d_->updateInfoTitleTextField_)
        d_->updateInfoTitleTextField_->setVisible(hasNotes);
    if (d_->updateInfoTextField_) {
        PlainTextView::setText(d_->updateInfoTextField_, notes);
        d_->updateInfoTextField_->setAccessibleName(whatsNew);
        d_->updateInfoTextField_->setVisible(hasNotes);
    }
    if (auto *headlineField = qobject_cast<VerticalCenterTextField *>(d_->updateTitleTextField_))
        headlineField->setShrinkingPart(product);
    if (d_->updateButton_)
        d_->updateButton_->setDefault(true);
    if (d_->window_)
        d_->window_->setAccessibleDescription(headline);
}

void UpdateInfoWindowController::showWindow()
{
    if (QDialog *window = this->window())
        WindowSystem::show(window);
}

void UpdateInfoWindowController::takePlaceOf(const UpdateInfoWindowController &former)
{
    const bool wasShown = former.d_->window_ && former.d_->window_->windowHandle();
    if (QDialog *window = wasShown ? this->window() : nullptr)
        window->move(former.d_->window_->pos());
}

void UpdateInfoWindowController::updateAction()
{
    const auto path = mUpdateFilePath();
    if (!path || !Files::exists(*path))
        return;
    if (d_->isActing_)
        return;
    if (!d_->isRight(*path))
        return d_->refuse();
    if (!d_->place_.isEmpty())
        return WindowSystem::showInFileManager(d_->place_);
    // A host may do anything while it takes the step upon itself, or the opening of files.
    const QPointer self(this);
    const bool wasVisible = d_->isVisible();
    d_->isActing_ = true;
    auto *delegate = d_->delegate_.get();
    const bool isTaken = delegate && delegate->infoWindowInstalls(*path);
    if (!self)
        return;
    if (!isTaken && wasVisible && !d_->isVisible()) {
        d_->isActing_ = false;
        return; // It was closed meanwhile.
    }
    const QString link = isTaken ? QString() : installerLink(*path);
    if (!isTaken && !d_->isRight(link)) {
        d_->isActing_ = false;
        QFile::remove(link); // It may be a copy.
        return d_->refuse();
    }
    const bool isDone = isTaken || WindowSystem::openFile(link);
    if (!self)
        return;
    d_->isActing_ = false;
    if (isDone)
        d_->closeAndTell(1);
    else
        d_->tellPlace(link);
}

void UpdateInfoWindowController::setFileCheck(
    const std::function<bool(const QString &path)> &isRight)
{
    d_->fileCheck_ = isRight;
}

void UpdateInfoWindowController::cancelAction()
{
    if (d_->isActing_)
        return;
    if (d_->dontReminedMe_ && d_->dontReminedMe_->checkState() == Qt::Checked) {
        UpdatePreferences::setAutomaticUpdating(false);
        UpdatePreferences::synchronise();
    }
    d_->closeAndTell(0);
}

void UpdateInfoWindowController::systemPowerOffNotification()
{
    // Whoever watches the window close may destroy this controller.
    const QPointer<QDialog> window = d_->window_;
    if (window)
        window->close();
    if (window)
        window->hide(); // Also when something has refused.
}

void UpdateInfoWindowController::windowWillClose()
{
    if (d_->window_)
        d_->window_->hide();
}

std::optional<QString> UpdateInfoWindowController::mProductName() const
{
    return d_->mProductName_.get();
}

std::optional<QString> UpdateInfoWindowController::mUpdateProductVersion() const
{
    return d_->mUpdateProductVersion_.get();
}

std::optional<QString> UpdateInfoWindowController::mUpdateInfo() const
{
    return d_->mUpdateInfo_.get();
}

std::optional<QString> UpdateInfoWindowController::mUpdateFilePath() const
{
    return d_->mUpdateFilePath_.get();
}

void UpdateInfoWindowController::setMProductName(const std::optional<QString> &name)
{
    d_->mProductName_.set(name);
}

void UpdateInfoWindowController::setMUpdateProductVersion(const std::optional<QString> &version)
{
    d_->mUpdateProductVersion_.set(version);
}

void UpdateInfoWindowController::setMUpdateInfo(const std::optional<QString> &info)
{
    d_->mUpdateInfo_.set(info);
}

void UpdateInfoWindowController::setMUpdateFilePath(const std::optional<QString> &path)
{
    d_->mUpdateFilePath_.set(path);
}

UpdateInfoWindowControllerDelegate *UpdateInfoWindowController::delegate() const
{
    return d_->delegate_.get();
}

void UpdateInfoWindowController::setDelegate(UpdateInfoWindowControllerDelegate *delegate)
{
    d_->delegate_ = DelegateRef(delegate);
}

QPushButton *UpdateInfoWindowController::updateButton() const
{
    return d_->updateButton_;
}

void UpdateInfoWindowController::setUpdateButton(QPushButton *button)
{
    d_->updateButton_ = button;
}

QPushButton *UpdateInfoWindowController::notNowButton() const
{
    return d_->notNowButton_;
}

void UpdateInfoWindowController::setNotNowButton(QPushButton *button)
{
    d_->notNowButton_ = button;
}

QCheckBox *UpdateInfoWindowController::dontReminedMe() const
{
    return d_->dontReminedMe_;
}

void UpdateInfoWindowController::setDontReminedMe(QCheckBox *box)
{
    d_->dontReminedMe_ = box;
}

QTextEdit *UpdateInfoWindowController::updateInfoTextField() const
{
    return d_->updateInfoTextField_;
}

void UpdateInfoWindowController::setUpdateInfoTextField(QTextEdit *field)
{
    d_->updateInfoTextField_ = field;
}

QLabel *UpdateInfoWindowController::updateInfoTitleTextField() const
{
    return d_->updateInfoTitleTextField_;
}

void UpdateInfoWindowController::setUpdateInfoTitleTextField(QLabel *field)
{
    d_->updateInfoTitleTextField_ = field;
}

QLabel *UpdateInfoWindowController::updateTitleTextField() const
{
    return d_->updateTitleTextField_;
}

void UpdateInfoWindowController::setUpdateTitleTextField(QLabel *field)
{
    d_->updateTitleTextField_ = field;
}

// Connects what the layout holds; a part that it lacks stays null.
void UpdateInfoWindowController::Private::loadWindow()
{
    const auto layout = bundle_.pathForResource(windowNibName_, QStringLiteral("ui"));
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

void UpdateInfoWindowController::Private::awakeFromNib()
{
    QObject::connect(window_, &QDialog::finished, self,
                     &UpdateInfoWindowController::windowWillClose);
    if (notNowButton_)
        QObject::connect(notNowButton_, &QPushButton::clicked, self,
                         &UpdateInfoWindowController::cancelAction);
    if (updateButton_) {
        QObject::connect(updateButton_, &QPushButton::clicked, self,
                         &UpdateInfoWindowController::updateAction);
        // Some desktops let Return press the button that has the focus; here it means "Update".
        for (const Qt::Key key : {Qt::Key_Return, Qt::Key_Enter})
            QObject::connect(new QShortcut(key, window_), &QShortcut::activated, updateButton_,
                             &QPushButton::click);
        updateButton_->setFocus();
    }
    if (updateInfoTextField_)
        scrollByKeys(window_, updateInfoTextField_->verticalScrollBar());
    new KeyGuard(window_); // Owned by the window.
    self->reloadWindow();
    const auto *observer = new PowerOffObserver(window_);
    QObject::connect(observer, &PowerOffObserver::powerOffImminent, self,
                     &UpdateInfoWindowController::systemPowerOffNotification);
}

// In the place of the notes, where it can be copied.
void UpdateInfoWindowController::Private::tellPlace(const QString &path)
{
    place_ = path;
    const Bundle bundle = languageBundle(bundle_);
    const auto localized = [&bundle](const char *key) {
        return bundle.localizedString(QString::fromLatin1(key), QStringLiteral("Localizable"));
    };
    const QString trouble = localized("No program here opens the installer. It is at:");
    setStringValue(updateInfoTitleTextField_, trouble);
    setTitle(updateButton_, localized("Show in folder"));
    if (updateInfoTitleTextField_)
        updateInfoTitleTextField_->setVisible(true);
    if (updateInfoTextField_) {
        PlainTextView::setText(updateInfoTextField_, path);
        updateInfoTextField_->setAccessibleName(trouble);
        updateInfoTextField_->setVisible(true);
    }
}

void UpdateInfoWindowController::Private::refuse()
{
    removeInstaller(self->mUpdateFilePath().value_or(QString()));
    const auto delegate = delegate_;
    if (window_)
        window_->close();
    if (UpdateInfoWindowControllerDelegate *receiver = delegate.get())
        receiver->infoWindowRefusedInstaller();
}

// The last thing that an action does: who hears of it may destroy this controller, and so may
// whoever watches the window close.
void UpdateInfoWindowController::Private::closeAndTell(uint64_t action)
{
    const auto delegate = delegate_;
    if (window_)
        window_->close();
    if (UpdateInfoWindowControllerDelegate *receiver = delegate.get())
        receiver->infoWindowClosedActions(action);
}
