#include "qxhost.h"

#include <alloca.h>
#include <arpa/inet.h>
#include <ifaddrs.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <net/if_arp.h>
#include <netdb.h>
#include <netinet/in.h>
#include <stdint.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include <mutex>
#include <new>
#include <string>

#include "qxmemory.h"

namespace QXPlatform {
namespace {

const size_t kNameSize = 128;
const unsigned long kScratchHeader = 16;
const uint32_t kStackTag = 0xCCCC;
const uint32_t kHeapTag = 0xDDDD;
const char kIdentInterface[] = "en0";
const unsigned int kMinIdentBytes = 4;

char* HostNameBuffer() {
  static char hostName[kNameSize];
  return hostName;
}

char* DomainNameBuffer() {
  static char domainName[kNameSize];
  return domainName;
}

unsigned char* IPAddressBuffer() {
  static unsigned char ipAddress[4];
  return ipAddress;
}

// Each instantiation owns one flag, so every initialiser runs at most once
// and independently of the others.
template <void (*F)()>
void QXCallOnce() {
  static std::once_flag flag;
  std::call_once(flag, F);
}

void QXInitHostName() {
  char* name = HostNameBuffer();
  if (gethostname(name, kNameSize) != 0) {
    name[0] = '\0';
    return;
  }
  name[kNameSize - 1] = '\0';
  char* dot = strchr(name, '.');
  if (dot != nullptr) {
    *dot = '\0';
  }
}

void QXInitIPAddress() {
  struct ifaddrs* list = nullptr;
  if (getifaddrs(&list) != 0) {
    return;
  }
  unsigned char* address = IPAddressBuffer();
  for (struct ifaddrs* entry = list; entry != nullptr;
       entry = entry->ifa_next) {
    if (entry->ifa_addr == nullptr || entry->ifa_addr->sa_family != AF_INET) {
      continue;
    }
    const struct sockaddr_in* in =
        reinterpret_cast<const struct sockaddr_in*>(entry->ifa_addr);
    memcpy(address, &in->sin_addr.s_addr, 4);
    if (address[0] != 127) {
      break;
    }
  }
  freeifaddrs(list);
}

// Splits a name from the resolver into the domain buffer; a name the buffer
// cannot hold counts as no answer.
bool SplitResolvedName(char* domain, const char* name) {
  if (name == nullptr || strlen(name) >= kNameSize) {
    domain[0] = '\0';
    return false;
  }
  return QXSplitDomainName(domain, name);
}

void QXInitDomainName() {
  char* domain = DomainNameBuffer();
  const unsigned char* address = QXGetIPAddress();
  if (address != nullptr) {
    struct hostent* entry = gethostbyaddr(address, 4, AF_INET);
    if (entry != nullptr && SplitResolvedName(domain, entry->h_name)) {
      return;
    }
  }
  if (getdomainname(domain, kNameSize) == 0) {
    domain[kNameSize - 1] = '\0';
    if (domain[0] != '\0' && strcmp(domain, "(none)") != 0) {
      return;
    }
  }
  if (gethostname(domain, kNameSize) == 0) {
    domain[kNameSize - 1] = '\0';
    // Deliberate: splitting the buffer into itself empties it before reading
    // it, so this never succeeds and only clears what the last step left.
    if (QXSplitDomainName(domain, domain)) {
      return;
    }
  }
  struct hostent* entry = gethostbyname(domain);
  if (entry == nullptr || !SplitResolvedName(domain, entry->h_name)) {
    domain[0] = '\0';
  }
}

// One link-level entry of the interface list, as copied into scratch memory.
struct LinkRecord {
  char name[IFNAMSIZ];
  unsigned short hardwareType;
  unsigned char addressLength;
  unsigned char address[8];
};

bool IsLinkEntry(const struct ifaddrs* entry) {
  return entry->ifa_addr != nullptr &&
         entry->ifa_addr->sa_family == AF_PACKET && entry->ifa_name != nullptr;
}

unsigned long LinkRecordsLength(const struct ifaddrs* list) {
  unsigned long length = 0;
  for (const struct ifaddrs* entry = list; entry != nullptr;
       entry = entry->ifa_next) {
    if (IsLinkEntry(entry)) {
      length += sizeof(LinkRecord);
    }
  }
  return length;
}

// Copies at most room bytes of records into area; returns the bytes written.
unsigned long FillLinkRecords(const struct ifaddrs* list, unsigned char* area,
                              unsigned long room) {
  unsigned long used = 0;
  for (const struct ifaddrs* entry = list; entry != nullptr;
       entry = entry->ifa_next) {
    if (!IsLinkEntry(entry) || room - used < sizeof(LinkRecord)) {
      continue;
    }
    const struct sockaddr_ll* link =
        reinterpret_cast<const struct sockaddr_ll*>(entry->ifa_addr);
    LinkRecord record;
    memset(&record, 0, sizeof(record));
    strncpy(record.name, entry->ifa_name, sizeof(record.name) - 1);
    record.hardwareType = link->sll_hatype;
    record.addressLength = link->sll_halen < sizeof(record.address)
                               ? link->sll_halen
                               : sizeof(record.address);
    memcpy(record.address, link->sll_addr, record.addressLength);
    memcpy(area + used, &record, sizeof(record));
    used += sizeof(record);
  }
  return used;
}

long IdentFromRecords(const unsigned char* area, unsigned long length) {
  for (unsigned long at = 0; at + sizeof(LinkRecord) <= length;
       at += sizeof(LinkRecord)) {
    LinkRecord record;
    memcpy(&record, area + at, sizeof(record));
    if (record.hardwareType == ARPHRD_ETHER &&
        strcmp(record.name, kIdentInterface) == 0 &&
        record.addressLength >= kMinIdentBytes) {
      unsigned long ident =
          (static_cast<unsigned long>(record.address[0]) << 24) |
          (static_cast<unsigned long>(record.address[1]) << 16) |
          (static_cast<unsigned long>(record.address[2]) << 8) |
          static_cast<unsigned long>(record.address[3]);
      return static_cast<long>(ident);
    }
  }
  return 0;
}

void StoreTag(unsigned char* block, uint32_t tag) {
  memcpy(block, &tag, sizeof(tag));
}

uint32_t LoadTag(const unsigned char* block) {
  uint32_t tag;
  memcpy(&tag, block, sizeof(tag));
  return tag;
}

// Gives a scratch block back on every way out of the caller: heap blocks are
// tagged and deleted, stack blocks go with the frame.
class ScratchRelease {
 public:
  explicit ScratchRelease(unsigned char* block) : _block(block) {}
  ~ScratchRelease() {
    if (LoadTag(_block) == kHeapTag) {
      delete[] _block;
    }
  }
  ScratchRelease(const ScratchRelease&) = delete;
  ScratchRelease& operator=(const ScratchRelease&) = delete;

 private:
  unsigned char* _block;
};

class InterfaceList {
 public:
  InterfaceList() : _list(nullptr), _ok(getifaddrs(&_list) == 0) {}
  ~InterfaceList() {
    if (_ok) {
      freeifaddrs(_list);
    }
  }
  InterfaceList(const InterfaceList&) = delete;
  InterfaceList& operator=(const InterfaceList&) = delete;

  bool ok() const { return _ok; }
  const struct ifaddrs* list() const { return _list; }

 private:
  struct ifaddrs* _list;
  bool _ok;
};

}  // namespace

const char* QXGetHostName() {
  QXCallOnce<QXInitHostName>();
  const char* name = HostNameBuffer();
  return name[0] != '\0' ? name : nullptr;
}

const char* QXGetDomainName() {
  QXCallOnce<QXInitDomainName>();
  const char* domain = DomainNameBuffer();
  return domain[0] != '\0' ? domain : nullptr;
}

const unsigned char* QXGetIPAddress() {
  QXCallOnce<QXInitIPAddress>();
  const unsigned char* address = IPAddressBuffer();
  return address[0] != 0 ? address : nullptr;
}

long QXGetHostIdent() {
  InterfaceList interfaces;
  if (!interfaces.ok()) {
    return 0;
  }
  unsigned long length = LinkRecordsLength(interfaces.list());
  if (length > ~0UL - kScratchHeader) {
    throw std::bad_alloc();
  }
  unsigned long need = length + kScratchHeader;
  unsigned char* block;
  if (need > QXGetAllocaThreshold()) {
    block = new unsigned char[need];
    StoreTag(block, kHeapTag);
  } else {
    // The threshold is at most 4096, so this stays a small frame.
    unsigned long rounded = (need + 15) & ~15UL;
    block = static_cast<unsigned char*>(alloca(rounded + kScratchHeader));
    StoreTag(block, kStackTag);
  }
  ScratchRelease release(block);
  unsigned char* area = block + kScratchHeader;
  unsigned long filled = FillLinkRecords(interfaces.list(), area, length);
  if (filled < 1) {
    return 0;
  }
  return IdentFromRecords(area, filled);
}

bool QXSplitDomainName(char* domain, const char* fqdn) {
  if (domain == nullptr) {
    return false;
  }
  domain[0] = '\0';
  if (fqdn == nullptr || fqdn[0] == '\0') {
    return false;
  }
  const char* dot = strchr(fqdn, '.');
  if (dot == nullptr) {
    return false;
  }
  const char* from = dot + 1;
  char* to = domain;
  while (*from != '\0') {
    *to++ = *from++;
  }
  *to = '\0';
  return true;
}

void QXSplitHostName(char* host, const char* fqdn) {
  if (host == nullptr) {
    return;
  }
  if (fqdn == nullptr) {
    host[0] = '\0';
    return;
  }
  char* to = host;
  for (const char* from = fqdn; *from != '\0' && *from != '.'; ++from) {
    *to++ = *from;
  }
  *to = '\0';
}

size_t write_callback(char* data, size_t size, size_t count, void* target) {
  if (target == nullptr) {
    return 0;
  }
  size_t bytes = size * count;
  static_cast<std::string*>(target)->append(data, bytes);
  return bytes;
}

}  // namespace QXPlatform
