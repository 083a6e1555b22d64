// Writes text to a memory stream, reads it back, and reports on qxout.

#include <string>

#include <QXPlatform/QXPlatform.h>

int main() {
  using namespace QXPlatform;
  qxosstream out;
  out << "answer " << 42 << ' ' << 2.5 << '\n';
  qxisstream in(out.str());
  std::string word;
  int number = 0;
  double value = 0;
  in.gettoken(word, 64);
  in >> number >> value;
  if (word != "answer" || number != 42 || value != 2.5) {
    qxerr << "consumer: unexpected read back: " << word << ' ' << number
          << qxendl;
    return 1;
  }
  qxout << "consumer: read back " << word << ' ' << number << ' ' << value
        << qxendl;
  return 0;
}
