#pragma once

#include "../platform/Export.h"
#include "UpdateInfoWindowControllerDelegate.h"

#include <QObject>
#include <QString>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

class QCheckBox;
class QDialog;
class QLabel;
class QTextEdit;
class QPushButton;

/// The prompt window: it says that an update is ready and what is new in it, and offers "Update",
/// which opens the installer, and "Not now", which can switch automatic updating off for good.
///
/// ZVUpdateProc makes and owns one; a host reaches it to place its window, or to see it go. Closing
/// the window by its close box or with Escape is no choice: nothing is written and nobody is told.
/// Everything here is for the main thread; only the getters of the texts are for any thread.
/// Without a QApplication, or when the layout is missing or broken, there is no window, and
/// whatever needs it is skipped.
class ZVUPDATE_EXPORT UpdateInfoWindowController final : public QObject
{
    Q_OBJECT
    Q_MOC_INCLUDE(<QCheckBox>)
    Q_MOC_INCLUDE(<QLabel>)
    Q_MOC_INCLUDE(<QPushButton>)
    Q_MOC_INCLUDE(<QTextEdit>)
    ///@{
    /// What the functions of these names return and set.
    Q_PROPERTY(QPushButton *updateButton READ updateButton WRITE setUpdateButton)
    Q_PROPERTY(QPushButton *notNowButton READ notNowButton WRITE setNotNowButton)
    Q_PROPERTY(QCheckBox *dontReminedMe READ dontReminedMe WRITE setDontReminedMe)
    Q_PROPERTY(QTextEdit *updateInfoTextField READ updateInfoTextField WRITE setUpdateInfoTextField)
    Q_PROPERTY(QLabel *updateInfoTitleTextField READ updateInfoTitleTextField WRITE
                   setUpdateInfoTitleTextField)
    Q_PROPERTY(QLabel *updateTitleTextField READ updateTitleTextField WRITE setUpdateTitleTextField)
    Q_PROPERTY(std::optional<QString> mProductName READ mProductName WRITE setMProductName)
    Q_PROPERTY(std::optional<QString> mUpdateProductVersion READ mUpdateProductVersion WRITE
                   setMUpdateProductVersion)
    Q_PROPERTY(std::optional<QString> mUpdateInfo READ mUpdateInfo WRITE setMUpdateInfo)
    Q_PROPERTY(std::optional<QString> mUpdateFilePath READ mUpdateFilePath WRITE setMUpdateFilePath)
    Q_PROPERTY(UpdateInfoWindowControllerDelegate *delegate READ delegate WRITE setDelegate)
    ///@}

public:
    /// Takes the name of a layout, and the folder that holds it and the texts: the bundle that is
    /// built into the library, unless named. The layout is loaded on the first call of window().
    explicit UpdateInfoWindowController(const QString &windowNibName,
                                        const std::optional<QString> &bundlePath = std::nullopt);

    /// Takes the window off the screen, without telling the delegate.
    ~UpdateInfoWindowController() override;

    /// The window, which belongs to the controller; null when there is none.
    QDialog *window();

    /// Fills the window with the texts below and with the labels in the user's language.
    void reloadWindow();

    /// Puts the window on the screen. It takes the keyboard neither from another application nor
    /// from a window of the host in which the user is typing.
    void showWindow();

    /// Has the window appear where another one is or was; does nothing if that was never there.
    void takePlaceOf(const UpdateInfoWindowController &former);

    /// "Update": opens the installer, unless the delegate sees to it, closes the window and tells
    /// the delegate 1. Does nothing when there is no installer. Where no program opens it, the
    /// window stays and says where the installer lies, nobody is told, and the button shows that
    /// place in the file manager from then on. Blocks while the desktop is asked for a program, for
    /// two seconds a question at the most, and while a link is made, or a copy where there are
    /// none.
    void updateAction();

    /// Has a file looked at in the moment of "Update", before it is handed on, and again under the
    /// name by which it is opened: where that does not hold, it is removed and not opened, the
    /// window closes, and the delegate hears infoWindowRefusedInstaller(). Blocks for as long as
    /// that takes, twice where the delegate does not see to the update.
    void setFileCheck(const std::function<bool(const QString &path)> &isRight);

    /// "Not now": switches automatic updating off if the check box says so, closes the window and
    /// tells the delegate 0.
    void cancelAction();

    /// The system is about to power off: closes the window and tells nobody.
    void systemPowerOffNotification();

    /// The window is closing, for whatever reason.
    void windowWillClose();

    ///@{
    /// The product's name, for the title and the headline.
    std::optional<QString> mProductName() const;
    void setMProductName(const std::optional<QString> &name);
    ///@}

    ///@{
    /// The new version as it is shown, such as "v2.1.0.3".
    std::optional<QString> mUpdateProductVersion() const;
    void setMUpdateProductVersion(const std::optional<QString> &version);
    ///@}

    ///@{
    /// What is new, as plain text.
    std::optional<QString> mUpdateInfo() const;
    void setMUpdateInfo(const std::optional<QString> &info);
    ///@}

    ///@{
    /// The installer's full path.
    std::optional<QString> mUpdateFilePath() const;
    void setMUpdateFilePath(const std::optional<QString> &path);
    ///@}

    ///@{
    /// Who hears of the user's choice; null when there is nobody, or they have been destroyed. Not
    /// owned. May destroy this controller when told.
    UpdateInfoWindowControllerDelegate *delegate() const;
    void setDelegate(UpdateInfoWindowControllerDelegate *delegate);
    ///@}

    ///@{
    /// What the layout has under these names; null where it has nothing, or before it is loaded.
    /// To set one says what is filled from then on; it connects nothing.
    QPushButton *updateButton() const;
    void setUpdateButton(QPushButton *button);
    QPushButton *notNowButton() const;
    void setNotNowButton(QPushButton *button);
    QCheckBox *dontReminedMe() const;
    void setDontReminedMe(QCheckBox *box);
    QTextEdit *updateInfoTextField() const;
    void setUpdateInfoTextField(QTextEdit *field);
    QLabel *updateInfoTitleTextField() const;
    void setUpdateInfoTitleTextField(QLabel *field);
    QLabel *updateTitleTextField() const;
    void setUpdateTitleTextField(QLabel *field);
    ///@}

private:
    struct ZVUPDATE_NO_EXPORT Private;
    const std::unique_ptr<Private> d_;
};
