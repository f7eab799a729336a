#include <support/memorystreams.h>
#include <support/record.h>

#include <QBuffer>
#include <QDataStream>
#include <benchmark/benchmark.h>
#include <boost/archive/binary_oarchive.hpp>

#include <string>

namespace
{
// Every iteration writes the record over the one before, into memory that is there already.

void writeTarvo(benchmark::State& state)
{
    auto record = makeRecord(CString(CK_T("twelve units")));
    MemoryWriter writer;
    for (auto _ : state)
    {
        benchmark::DoNotOptimize(record);
        writer.Restart();
        write(writer, record);
        benchmark::DoNotOptimize(writer.Bytes().data());
    }
}

/// As an object does that is handed a stream and does not know which.
void writeTarvoVirtual(benchmark::State& state)
{
    auto record = makeRecord(CString(CK_T("twelve units")));
    MemoryWriter writer;
    CkStreamWrite* stream = &writer;
    for (auto _ : state)
    {
        benchmark::DoNotOptimize(record);
        benchmark::DoNotOptimize(stream);
        writer.Restart();
        write(*stream, record);
        benchmark::DoNotOptimize(writer.Bytes().data());
    }
}

void writeQt(benchmark::State& state)
{
    auto record = makeRecord(QString("twelve units"));
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    QDataStream stream(&buffer);
    stream.setByteOrder(QDataStream::LittleEndian);
    for (auto _ : state)
    {
        benchmark::DoNotOptimize(record);
        buffer.seek(0);
        write(stream, record);
        benchmark::DoNotOptimize(bytes.constData());
    }
}

void writeBoost(benchmark::State& state)
{
    // Narrow text is the friendliest: half the bytes, and no allocation for twelve of them.
    auto record = makeRecord(std::string("twelve units"));
    MemoryBuffer buffer;
    boost::archive::binary_oarchive archive(buffer, boost::archive::no_header);
    for (auto _ : state)
    {
        benchmark::DoNotOptimize(record);
        buffer.RestartWriting();
        write(archive, record);
        benchmark::DoNotOptimize(buffer.Data());
    }
}

BENCHMARK(writeTarvo)->Name("binary_write/tarvo");
BENCHMARK(writeTarvoVirtual)->Name("binary_write/tarvo_virtual");
BENCHMARK(writeQt)->Name("binary_write/QDataStream");
BENCHMARK(writeBoost)->Name("binary_write/boost::archive");
} // namespace
