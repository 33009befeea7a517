// The time of sealing and unsealing, of making a record of a reply, and of checking
// a signature.
#include "platform/crypto/Ed25519.h"
#include "service/CheckUpdateResponse.h"
#include "service/HttpFunctionURLEncode.h"

#include <benchmark/benchmark.h>

namespace {

constexpr int64_t smallest = 16;
constexpr int64_t largest = 16 << 20;

QString plainText(int64_t size)
{
    QString text(size, Qt::Uninitialized);
    for (qsizetype i = 0; i < text.size(); ++i)
        text[i] = QChar(u'a' + static_cast<char16_t>(i % 26));
    return text;
}

// All that seals or unseals counts the bytes of the plain text.
template <class Work>
void measure(benchmark::State &state, Work work)
{
    for (auto _ : state) // NOLINT(clang-analyzer-deadcode.DeadStores): only the loop counts
        benchmark::DoNotOptimize(work());
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

void seal(benchmark::State &state)
{
    measure(state,
            [text = plainText(state.range(0))] { return HttpFunctionURLEncode::encode(text); });
}

void unseal(benchmark::State &state)
{
    const QString sealed = HttpFunctionURLEncode::encode(plainText(state.range(0)));
    measure(state, [&] { return HttpFunctionURLEncode::decode(sealed); });
}

// A reply as services send it, with notes of some sentences in each of the three languages.
void makeRecord(benchmark::State &state)
{
    const QString chinese =
        QStringLiteral("啟動更快，並且可以更新。修正了列印時的錯誤。").repeated(8);
    const QString english = QStringLiteral("Starts faster, and can be updated. ").repeated(8);
    const QString note = QStringLiteral("{\"language\":\"%1\",\"memo\":\"%2\"}");
    const QString inner =
        QStringLiteral("{\"ZVUpdVersion\":\"2103\",\"ZVMD5\":\"900150983cd24fb0d6963f7d28e17f72\","
                       "\"ZVMemo\":{\"datas\":[%1,%2,%3]}}")
            .arg(note.arg(QStringLiteral("en"), english),
                 note.arg(QStringLiteral("zh-TW"), chinese),
                 note.arg(QStringLiteral("zh-CN"), chinese));
    const QString reply = QStringLiteral("{\"ok\":true,\"msg\":\"\",\"data\":\"%1\"}")
                              .arg(HttpFunctionURLEncode::encode(inner));
    if (!CheckUpdateResponse::getFromJson(reply)->getUpdateMessageWithLang(QStringLiteral("zh-CN")))
        state.SkipWithError("the reply is not understood");
    for (auto _ : state) // NOLINT(clang-analyzer-deadcode.DeadStores): only the loop counts
        benchmark::DoNotOptimize(CheckUpdateResponse::getFromJson(reply));
}

// The signature is none, which takes as long.
void checkSignature(benchmark::State &state)
{
    const QByteArray key =
        QByteArray::fromHex("d75a980182b10ab7d54bfed3c964073a0ee172f3daa62325af021a68f707511a");
    const QByteArray signature = key + QByteArray(32, '\1');
    const QByteArray statement(1200, 's');
    for (auto _ : state) // NOLINT(clang-analyzer-deadcode.DeadStores): only the loop counts
        benchmark::DoNotOptimize(ZVPlatform::isEd25519Signature(signature, statement, key));
}

} // namespace

BENCHMARK(seal)->RangeMultiplier(4)->Range(smallest, largest);
BENCHMARK(unseal)->RangeMultiplier(4)->Range(smallest, largest);
BENCHMARK(makeRecord);
BENCHMARK(checkSignature);
BENCHMARK_MAIN();
