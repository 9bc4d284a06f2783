// Cost of the front connection's packages: building a one-field request the
// way every request is built, and framing and walking an answer of ten
// fields straight out of the input buffer.
#include <benchmark/benchmark.h>

#include <cstring>

#include "VLNet/Buffer.h"
#include "VelmarMdStruct.h"
#include "package/VelmarPackage.h"
#include "package/VelmarPackageIterator.h"
#include "package/WireFormat.h"

namespace wire = velmar::mdapi::wire;

namespace {

void BM_BuildRequest(benchmark::State& state) {
  CVelmarPackage package(wire::kRequestCapacity);
  CVelmarSubAllRecord record = {1, 2};
  int requestId = 0;
  for (auto _ : state) {
    package.clear();
    package.prepare();
    package.setHeader(wire::kFtdTypeFtdc, wire::kExtTagNone, 0, 3, wire::kChainRequest,
                      wire::kFtdcMarkRequest, static_cast<uint32_t>(++requestId));
    package.addField(3, &record, sizeof record);
    package.finish();
    benchmark::DoNotOptimize(package.data());
    benchmark::DoNotOptimize(package.length());
  }
}
BENCHMARK(BM_BuildRequest);

// The same without clear, which zeroes the whole 4228-byte block: the part of
// the cost that is the package itself.
void BM_BuildRequestNoClear(benchmark::State& state) {
  CVelmarPackage package(wire::kRequestCapacity);
  package.clear();
  CVelmarSubAllRecord record = {1, 2};
  int requestId = 0;
  for (auto _ : state) {
    package.prepare();
    package.setHeader(wire::kFtdTypeFtdc, wire::kExtTagNone, 0, 3, wire::kChainRequest,
                      wire::kFtdcMarkRequest, static_cast<uint32_t>(++requestId));
    package.addField(3, &record, sizeof record);
    package.finish();
    benchmark::DoNotOptimize(package.data());
  }
}
BENCHMARK(BM_BuildRequestNoClear);

// An answer of ten tick records, as the front sends them, appended to the
// input buffer as a read would, then framed and walked.
void BM_AppendFrameAndWalkTenFields(benchmark::State& state) {
  CVelmarPackage package(wire::kRequestCapacity);
  package.clear();
  package.prepare();
  package.setHeader(wire::kFtdTypeFtdc, wire::kExtTagNone, 0, 34, wire::kChainRequest,
                    wire::kFtdcMarkRequest, 1);
  CVelmarTickByTick tick;
  std::memset(&tick, 0, sizeof tick);
  for (int i = 0; i < 10; ++i) package.addField(34, &tick, sizeof tick);
  package.finish();

  velmar::net::Buffer buffer;
  for (auto _ : state) {
    buffer.append(package.data(), static_cast<size_t>(package.length()));
    if (CVelmarPackageIterator::Check(&buffer)) {
      CVelmarPackageIterator it(&buffer);
      for (; !it.isEnd(); it.next()) {
        benchmark::DoNotOptimize(it.fieldId());
        benchmark::DoNotOptimize(it.fieldValue());
      }
    }
  }
}
BENCHMARK(BM_AppendFrameAndWalkTenFields);

// Framing and walking only: the indexes are set back over the same bytes.
void BM_FrameAndWalkTenFieldsInPlace(benchmark::State& state) {
  CVelmarPackage package(wire::kRequestCapacity);
  package.clear();
  package.prepare();
  package.setHeader(wire::kFtdTypeFtdc, wire::kExtTagNone, 0, 34, wire::kChainRequest,
                    wire::kFtdcMarkRequest, 1);
  CVelmarTickByTick tick;
  std::memset(&tick, 0, sizeof tick);
  for (int i = 0; i < 10; ++i) package.addField(34, &tick, sizeof tick);
  package.finish();

  velmar::net::Buffer buffer;
  buffer.append(package.data(), static_cast<size_t>(package.length()));
  const size_t end = buffer.writerIndex();
  for (auto _ : state) {
    buffer.setWriterIndex(end);
    if (CVelmarPackageIterator::Check(&buffer)) {
      CVelmarPackageIterator it(&buffer);
      for (; !it.isEnd(); it.next()) {
        benchmark::DoNotOptimize(it.fieldId());
        benchmark::DoNotOptimize(it.fieldValue());
      }
    }
  }
}
BENCHMARK(BM_FrameAndWalkTenFieldsInPlace);

}  // namespace
