#include "FixedStream.h"

#include <cstring>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <type_traits>

namespace testing_support {

namespace {

constexpr char kMagic[8] = {'A', 'L', 'G', 'F', 'I', 'X', '0', '1'};
constexpr std::size_t kPoseAnswer = sizeof(algorithm::PoseAnswer);
constexpr std::size_t kHeadingAnswer = sizeof(algorithm::HeadingAnswer);

class Recorder : public algorithm::LogSink, public algorithm::DataSink {
 public:
  bool Log(int level, const char* message) override {
    current.logLines.push_back({level, message});
    return true;
  }
  bool Deliver(const void* buffer, int offset, int length) override {
    algorithm::ResultBlock block;
    if (offset != 0 || length != static_cast<int>(sizeof block)) {
      throw std::runtime_error("a block of another size was delivered");
    }
    std::memcpy(static_cast<void*>(&block), buffer, sizeof block);
    current.blocks.push_back(block);
    return true;
  }
  Outcome current;
};

class Writer {
 public:
  explicit Writer(const std::string& path) : file_(path, std::ios::binary) {}
  template <typename T>
  void put(const T& value) {
    static_assert(std::is_trivially_copyable_v<T>);
    file_.write(reinterpret_cast<const char*>(&value), sizeof value);
  }
  template <typename Range>
  void putSized(const Range& bytes) {
    put(static_cast<std::uint32_t>(bytes.size()));
    file_.write(reinterpret_cast<const char*>(bytes.data()),
                static_cast<std::streamsize>(bytes.size() * sizeof(*bytes.data())));
  }
  bool good() { return static_cast<bool>(file_.flush()); }

 private:
  std::ofstream file_;
};

class Reader {
 public:
  explicit Reader(const std::string& path) : path_(path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) throw std::runtime_error(path + ": cannot be opened");
    bytes_.assign(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
  }
  template <typename T>
  T get() {
    T value;
    std::memcpy(static_cast<void*>(&value), take(sizeof value), sizeof value);
    return value;
  }
  template <typename Element, typename Range>
  void getSized(Range& range) {
    const auto count = get<std::uint32_t>();
    const char* from = take(count * sizeof(Element));
    range.resize(count);
    if (count > 0) std::memcpy(static_cast<void*>(range.data()), from, count * sizeof(Element));
  }
  bool atEnd() const { return position_ == bytes_.size(); }

 private:
  const char* take(std::size_t size) {
    if (size > bytes_.size() - position_) {
      throw std::runtime_error(path_ + ": byte " + std::to_string(position_) + ": expected " +
                               std::to_string(size) + " more bytes, found the end");
    }
    const char* at = bytes_.data() + position_;
    position_ += size;
    return at;
  }
  std::string path_;
  std::vector<char> bytes_;
  std::size_t position_ = 0;
};

std::size_t answerSize(const Call& call) {
  if (call.operation != Operation::kHandleEvent) return 0;
  return call.selector == 16 ? kHeadingAnswer : kPoseAnswer;
}

}  // namespace

std::vector<Outcome> run(const std::vector<Call>& calls) {
  static Recorder recorder;  // the pipeline keeps a pointer to it
  static algorithm::AlgBase* const alg = algorithm::AlgFactory::CreateALG(0);
  alg->SetLogCallback(&recorder);
  alg->SetDataCallback(&recorder);

  std::vector<Outcome> outcomes;
  for (const Call& call : calls) {
    recorder.current = Outcome();
    Outcome& now = recorder.current;
    now.answer.resize(answerSize(call));
    switch (call.operation) {
      case Operation::kInit:
        now.result = alg->Init(call.selector, call.payload.data(), 0);
        break;
      case Operation::kInputStream:
        now.result = alg->InputStream(call.selector, call.payload.data(), 0,
                                      static_cast<int>(call.payload.size()));
        break;
      case Operation::kSetFilterMode:
        now.result = alg->SetFilterMode(0, call.selector, nullptr);
        break;
      case Operation::kHandleEvent:
        now.result = alg->HandleEvent(call.selector, call.payload.data(), now.answer.data());
        break;
    }
    outcomes.push_back(now);
  }
  return outcomes;
}

void writeFixedStream(const std::string& path, const FixedStream& stream) {
  Writer writer(path);
  writer.put(kMagic);
  writer.put(static_cast<std::uint32_t>(stream.calls.size()));
  for (std::size_t i = 0; i < stream.calls.size(); ++i) {
    const Call& call = stream.calls[i];
    const Outcome& outcome = stream.outcomes[i];
    writer.put(call.operation);
    writer.put(call.selector);
    writer.putSized(call.payload);
    writer.put(static_cast<std::uint8_t>(outcome.result));
    writer.putSized(outcome.answer);
    writer.putSized(outcome.blocks);
    writer.put(static_cast<std::uint32_t>(outcome.logLines.size()));
    for (const LogLine& line : outcome.logLines) {
      writer.put(line.level);
      writer.putSized(line.text);
    }
  }
  if (!writer.good()) throw std::runtime_error(path + ": cannot be written");
}

FixedStream readFixedStream(const std::string& path) {
  Reader reader(path);
  if (reader.get<std::array<char, 8>>() !=
      std::array<char, 8>{'A', 'L', 'G', 'F', 'I', 'X', '0', '1'}) {
    throw std::runtime_error(path + ": byte 0: expected a fixed stream's first bytes ALGFIX01");
  }
  FixedStream stream;
  const auto count = reader.get<std::uint32_t>();
  for (std::uint32_t i = 0; i < count; ++i) {
    Call call;
    Outcome outcome;
    call.operation = reader.get<Operation>();
    call.selector = reader.get<std::int32_t>();
    reader.getSized<std::uint8_t>(call.payload);
    outcome.result = reader.get<std::uint8_t>() != 0;
    reader.getSized<std::uint8_t>(outcome.answer);
    reader.getSized<algorithm::ResultBlock>(outcome.blocks);
    outcome.logLines.resize(reader.get<std::uint32_t>());
    for (LogLine& line : outcome.logLines) {
      line.level = reader.get<std::int32_t>();
      reader.getSized<char>(line.text);
    }
    stream.calls.push_back(std::move(call));
    stream.outcomes.push_back(std::move(outcome));
  }
  if (!reader.atEnd()) throw std::runtime_error(path + ": has bytes behind its last call");
  return stream;
}

}  // namespace testing_support
