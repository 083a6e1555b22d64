// A name prefix of your own: names that begin with "mem:" open streams on an
// in-process store of texts instead of files, for reading and for writing,
// and the stream manager's gzip handling works on them as on files.

#include <map>
#include <string>
#include <utility>

#include <QXPlatform/QXPlatform.h>

using namespace QXPlatform;

namespace {

int failures = 0;

void Check(bool ok, const char* what) {
  if (!ok) {
    qxerr << "prefix_handler: failed: " << what << qxendl;
    ++failures;
  }
}

// The store, keyed by what follows "mem:".
std::map<std::string, std::string>& Store() {
  static std::map<std::string, std::string> store;
  return store;
}

int inputCloses = 0;
int outputCloses = 0;

// Handlers get the whole name, prefix included.
std::string KeyOf(const char* name) {
  std::string key = name;
  size_t colon = key.find(':');
  return colon == std::string::npos ? key : key.substr(colon + 1);
}

// A memory output stream that puts its text into the store when it is
// deleted. Committing in the destructor, not in the close function, matters
// for names with ".gz": the manager then wraps this stream in a gzip stream
// that owns it and deletes it itself, and the close function is not called.
class StoredText : public qxosstream {
 public:
  explicit StoredText(std::string key) : _key(std::move(key)) {}
  ~StoredText() override { Store()[_key] = str(); }

 private:
  std::string _key;
};

// The open functions return a stream made with new, or null when there is
// nothing to open: the manager deletes a handler's stream itself when it
// comes back empty with its end flag set and when a gzip wrapper owns it, so
// a static or pooled stream would crash the process. The manager's lock is
// held while they run, so they must not call the manager themselves.
qxistream* OpenStored(const char* name) {
  auto found = Store().find(KeyOf(name));
  if (found == Store().end()) {
    return nullptr;
  }
  return new qxisstream(found->second);
}

qxostream* CreateStored(const char* name) {
  return new StoredText(KeyOf(name));
}

// The close functions dispose of what their open function made; the stream
// has already been closed.
void CloseStored(qxistream* s) {
  ++inputCloses;
  delete s;
}

void CloseCreated(qxostream* s) {
  ++outputCloses;
  delete s;
}

std::string ReadAll(const char* name) {
  qxistream* in = QXOpenIStream(name);
  std::string text;
  if (in != nullptr) {
    in->read(text);
  }
  QXCloseIStream(in);
  return text;
}

}  // namespace

int main() {
  QXRegisterIStream("mem", OpenStored, CloseStored);
  QXRegisterOStream("mem", CreateStored, CloseCreated);

  qxostream* out = QXOpenOStream("mem:notes");
  Check(out != nullptr, "open for writing");
  *out << "kept in memory\n";
  QXCloseOStream(out);
  Check(Store()["notes"] == "kept in memory\n" && outputCloses == 1,
        "written through the handler");

  Check(ReadAll("mem:notes") == "kept in memory\n" && inputCloses == 1,
        "read through the handler");
  Check(QXOpenIStream("mem:nothing") == nullptr, "a null open gives null");

  // ".gz" in the name packs the output; reading unpacks it by its content.
  // The gzip stream owns and deletes the handler's stream, so the close
  // functions are not called for these.
  out = QXOpenOStream("mem:notes.gz");
  Check(out != nullptr, "open .gz for writing");
  *out << "packed in memory\n";
  QXCloseOStream(out);
  Check(Store()["notes.gz"].compare(0, 2, "\x1f\x8b") == 0 && outputCloses == 1,
        "stored as gzip");
  Check(ReadAll("mem:notes.gz") == "packed in memory\n" && inputCloses == 1,
        "unpacked on reading");

  if (failures != 0) {
    return 1;
  }
  qxout << "prefix_handler: all checks passed" << qxendl;
  return 0;
}
