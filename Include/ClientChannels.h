// The two client channels of the service.  Each client makes its two FIFOs;
// the service reads the client's requests from one and writes to the client
// on the other.
#ifndef ZQ_INCLUDE_CLIENTCHANNELS_H_
#define ZQ_INCLUDE_CLIENTCHANNELS_H_

struct ClientChannel {
  const char* name;
  const char* toService;  // the client writes, the service reads
  const char* toClient;   // the service writes, the client reads
};

constexpr ClientChannel kMainUIChannel = {"MainUI", "/tmp/zq_btl_2", "/tmp/zq_btl_1"};
constexpr ClientChannel kFileExplorerChannel = {"FileExplorer", "/tmp/zq_btl_4", "/tmp/zq_btl_3"};

constexpr const char kServiceProcessName[] = "Zq-NorvaneServices";

#endif  // ZQ_INCLUDE_CLIENTCHANNELS_H_
