#pragma once

#include <QObject>

namespace ZVPlatform {

/// Notices that the system is about to power off or that the user's session ends. On a machine that
/// does not tell, nothing happens. Main thread only.
class PowerOffObserver final : public QObject
{
    Q_OBJECT

public:
    explicit PowerOffObserver(QObject *parent);

Q_SIGNALS:
    void powerOffImminent();

private Q_SLOTS:
    void prepareForShutdown(bool starts);
};

} // namespace ZVPlatform
