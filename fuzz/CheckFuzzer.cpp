#include "../tests/support/IsolatedHome.h"
#include "../tests/support/TestFiles.h"
#include "platform/KnownErrors.h"
#include "platform/http/HttpExchange.h"
#include "service/HttpFunctionURLEncode.h"

#include <ZVUpdate/ZVUpdate.h>

#include <QCoreApplication>
#include <QCryptographicHash>

#include <cstdlib>

using namespace Qt::StringLiterals;
using namespace ZVPlatform;

namespace {

class Host : public ZVUpdateProcDelegate
{
public:
    void UpdateFileReady(const QString &) override {}
    void windowClosedUpdateAction() override {}
    void windowClosedCancelAction() override {}
};

void require(bool holds)
{
    if (!holds)
        std::abort();
}

QString digestOf(const QByteArray &bytes)
{
    return QString::fromLatin1(QCryptographicHash::hash(bytes, QCryptographicHash::Md5).toHex());
}

/// What a service answers, in the order in which a check asks.
struct Script
{
    QByteArray checkReply;
    QByteArray tokenReply;
    int status = 200; ///< Of the file; 0 for no reply at all.
    qint64 length = -1;
    QByteArray file;
    bool breaksOff = false;

    static QByteArray sealed(const QByteArray &inner)
    {
        const QString data = HttpFunctionURLEncode::encode(QString::fromUtf8(inner));
        return "{\"ok\":true,\"data\":\"" + data.toLatin1() + "\"}";
    }

    /// Parts of the input, divided by lines of two dashes: a check-update reply (with a '!' before
    /// it as it stands, else the object that is sealed within one), a token reply, three numbers
    /// (status, length, whether the reply breaks off), the file.
    static Script fromInput(QByteArrayView input)
    {
        QByteArrayList parts;
        QByteArray rest = input.toByteArray();
        for (qsizetype end = 0; parts.size() < 3 && (end = rest.indexOf("\n--\n")) >= 0;) {
            parts += rest.left(end);
            rest.remove(0, end + 4);
        }
        parts.resize(3);
        const QByteArrayList numbers = parts[2].split(' ');
        return {parts[0].startsWith('!') ? parts[0].mid(1) : sealed(parts[0]),
                parts[1],
                numbers[0].toInt(),
                numbers.value(1).toLongLong(),
                rest,
                numbers.value(2) == "1"};
    }
};

Script service;

/// A host's machine: the save directory, something beside it, and another product's installer.
class Machine
{
public:
    Machine()
    {
        QDir(root_.path()).mkdir(u"save"_s);
        writeFile(root_.filePath(u"beside"_s), "untouched");
        writeFile(path(u"Q_0.dmg"_s), "untouched");
    }

    int64_t check(const Script &script)
    {
        service = script;
        ZVUpdateProc controller;
        controller.setProductID(u"P"_s, u"1"_s, root_.filePath(u"save"_s));
        const int64_t result = controller.updateWithDelegate(&host_);
        if (const auto client = controller.mCurrentDownloadUpdateLogic())
            client->waitOne();
        QCoreApplication::processEvents();
        if (const auto reply = controller.mLastCheckUpdateResponse(); reply && reply->ok())
            announced_[u"save/P_"_s + reply->ZVUpdateVersion().value_or(QString()) + u".dmg"_s] =
                reply->ZVMD5().value_or(QString()).toLower();
        examine();
        return result;
    }

    QString path(const QString &name) const { return root_.filePath(u"save/"_s + name); }

    void clear()
    {
        for (const QString &name : QDir(root_.filePath(u"save"_s)).entryList({u"P_*"_s}))
            QFile::remove(path(name));
        announced_.clear();
    }

private:
    // No installer but those announced, and nothing changed elsewhere.
    void examine() const
    {
        const auto tree = treeOf(root_.path());
        for (auto entry = tree.cbegin(); entry != tree.cend(); ++entry) {
            const QString name = entry.key().mid(root_.path().size() + 1);
            if (name == "beside"_L1 || name == "save/Q_0.dmg"_L1)
                require(*entry == "untouched");
            else if (name.endsWith(".dmg"_L1))
                require(digestOf(*entry) == announced_.value(name));
            else
                require(name == "save"_L1 ||
                        (name.startsWith("save/P_"_L1) && name.endsWith(".bin"_L1)));
        }
    }

    const QTemporaryDir root_;
    QMap<QString, QString> announced_; // The digest of each installer that was offered.
    Host host_;
};

Machine *machine;

Script healthyService()
{
    const QByteArray file = "a good installer";
    return {
        Script::sealed("{\"ZVUpdVersion\":\"2\",\"ZVMD5\":\"" + digestOf(file).toLatin1() + "\"}"),
        "{\"ok\":true,\"id\":\"T\"}", 200, file.size(), file};
}

} // namespace

// Every exchange of the process is answered by the script, at once, on the thread that runs it.

HttpExchange::HttpExchange(HttpRequest request) : request_(std::move(request)) {}

void HttpExchange::run(HttpReceiver &receiver)
{
    receiver.didFinish(converse(receiver));
}

Result<void, Error> HttpExchange::converse(HttpReceiver &receiver)
{
    const QString command =
        HttpFunctionURLEncode::decode(request_.url.section(u"dt="_s, 1)).value_or(QString());
    const bool isCheck = command.startsWith(u"cmd=checkupd&"_s);
    const bool isFile = !isCheck && command != u"cmd=gettoken"_s;
    if (isFile && service.status == 0)
        return Failure{networkError(NetworkError::Other)};
    receiver.didReceiveResponse({isFile ? service.status : 200, isFile ? service.length : -1});
    const QByteArray body = isCheck  ? service.checkReply
                            : isFile ? service.file
                                     : service.tokenReply;
    for (const QByteArray &piece : {body.left(5), body.mid(5)}) {
        if (cancelled_)
            return Failure{networkError(NetworkError::Cancelled)};
        if (request_.method == HttpMethod::Head)
            break;
        if (auto taken = receiver.didReceiveData(piece); !taken)
            return taken;
    }
    if (isFile && service.breaksOff)
        return Failure{Error{u"broken"_s, 1, {}}};
    return {};
}

void HttpExchange::cancel()
{
    cancelled_ = true;
}

extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv)
{
    static const IsolatedHome home;
    static const QCoreApplication application(*argc, *argv);
    static Machine instance;
    machine = &instance;
    return 0;
}

/// Whole checks with their downloads against a service that answers anything, each followed by one
/// against a service in order, which must bring the update.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    machine->check(Script::fromInput({data, static_cast<qsizetype>(size)}));
    machine->check(healthyService());
    require(machine->check(healthyService()) == ZVUpdateProc::ZVInstallerReady);
    require(readFile(machine->path(u"P_2.dmg"_s)) == healthyService().file);
    machine->clear();
    return 0;
}
