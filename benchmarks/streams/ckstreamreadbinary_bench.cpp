#include <support/memorystreams.h>
#include <support/record.h>

#include <QBuffer>
#include <QDataStream>
#include <benchmark/benchmark.h>
#include <boost/archive/binary_iarchive.hpp>
#include <boost/archive/binary_oarchive.hpp>

#include <string>

namespace
{
template <class Text>
void check(benchmark::State& state, const Record<Text>& written, const Record<Text>& read)
{
    if (read != written)
        state.SkipWithError("what was read is not what was written");
}

// Every iteration reads the same record from memory over the values of the one before.

void readTarvo(benchmark::State& state)
{
    const auto written = makeRecord(CString(CK_T("twelve units")));
    MemoryWriter writer;
    write(writer, written);
    MemoryReader reader(writer.Bytes());
    Record<CString> record;
    for (auto _ : state)
    {
        reader.Restart();
        read(reader, record);
        benchmark::DoNotOptimize(record);
    }
    check(state, written, record);
}

void readTarvoVirtual(benchmark::State& state)
{
    const auto written = makeRecord(CString(CK_T("twelve units")));
    MemoryWriter writer;
    write(writer, written);
    MemoryReader reader(writer.Bytes());
    CkStreamRead* stream = &reader;
    Record<CString> record;
    for (auto _ : state)
    {
        benchmark::DoNotOptimize(stream);
        reader.Restart();
        read(*stream, record);
        benchmark::DoNotOptimize(record);
    }
    check(state, written, record);
}

void readQt(benchmark::State& state)
{
    const auto written = makeRecord(QString("twelve units"));
    QBuffer buffer;
    buffer.open(QIODevice::ReadWrite);
    QDataStream stream(&buffer);
    stream.setByteOrder(QDataStream::LittleEndian);
    write(stream, written);
    Record<QString> record;
    for (auto _ : state)
    {
        buffer.seek(0);
        read(stream, record);
        benchmark::DoNotOptimize(record);
    }
    check(state, written, record);
}

void readBoost(benchmark::State& state)
{
    const auto written = makeRecord(std::string("twelve units"));
    MemoryBuffer buffer;
    buffer.RestartWriting();
    boost::archive::binary_oarchive output(buffer, boost::archive::no_header);
    write(output, written);
    buffer.RestartReading();
    boost::archive::binary_iarchive input(buffer, boost::archive::no_header);
    Record<std::string> record;
    for (auto _ : state)
    {
        buffer.RestartReading();
        read(input, record);
        benchmark::DoNotOptimize(record);
    }
    check(state, written, record);
}

BENCHMARK(readTarvo)->Name("binary_read/tarvo");
BENCHMARK(readTarvoVirtual)->Name("binary_read/tarvo_virtual");
BENCHMARK(readQt)->Name("binary_read/QDataStream");
BENCHMARK(readBoost)->Name("binary_read/boost::archive");
} // namespace
