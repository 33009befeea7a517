#pragma once

#include <QByteArray>
#include <QSocketNotifier>
#include <QString>

#include <functional>
#include <optional>

/// SIGINT and SIGTERM. While nobody takes them they end the process at once, with the status that
/// shells expect and with last words, if any; nothing that a check does suffers from that. One
/// object at a time, on the main thread.
class StopSignals
{
public:
    /// Receives the signal's number.
    using Handler = std::function<void(int)>;

    StopSignals();
    /// Signals go on to end the process, without last words.
    ~StopSignals();

    StopSignals(const StopSignals &) = delete;
    StopSignals &operator=(const StopSignals &) = delete;

    /// lastWords makes what is written to the descriptor when a signal, given by its name, ends the
    /// process. To be called once.
    void setLastWords(int descriptor, const std::function<QByteArray(const QString &)> &lastWords);

    /// From now on the first signal is handed to the handler, by the event loop. Should its way
    /// take longer than half a second, or a second signal come, the process ends at once after all:
    /// whoever reads its output may have stopped reading, and then nothing gets on.
    void take(Handler handler);

    /// From now on signals end the process at once again.
    void leave();

    /// From now on a signal that ends the process does so without last words: others are about to
    /// be said.
    void dropLastWords();

    /// "SIGINT" or "SIGTERM".
    static QString name(int signal);

private:
    Handler handler_;
    std::optional<QSocketNotifier> notifier_;
};
