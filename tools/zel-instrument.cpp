// zel-instrument: a simulated SCPI instrument on a local TCP socket, for the demo and the tests.
// Speaks line-terminated SCPI like a LAN instrument's raw socket port (resource address
// TCPIP::127.0.0.1::<port>::SOCKET). Every connection has its own state.
//
//   *IDN?  *RST  *CLS  *OPC?
//   MEAS:VOLT? (also MEAS:VOLT:DC?)   a voltage that rises by 1 mV per reading, from +1.000000E+00
//   MEAS:CURR?                        +1.000000E-03
//   SYST:ERR?                         oldest entry of the error queue, or +0,"No error"
//   TRAC:DATA?                        IEEE 488.2 definite-length block of 16 bytes 0x00..0x0F
//   *STB?                             status byte: 4 while the error queue holds an entry, 64 while a
//                                     service request is pending; reading it clears the request, as a
//                                     serial poll would
//   SIM:DELAY <ms>                    answer every later query after <ms> milliseconds
//   SIM:SILENT ON|OFF                 leave queries unanswered (the client times out)
//   SIM:SRQ [<ms>]                    raise a service request after <ms> milliseconds (default 0): the
//                                     status byte gets 64 and one byte of TCP urgent data is sent, the
//                                     out-of-band signal libvisa-sim turns into VI_EVENT_SERVICE_REQ
// Anything else queues -113,"Undefined header".

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <string>
#include <thread>

namespace {

struct Session
{
    int socket;
    long delayMs = 0;
    bool silent = false;
    int readings = 0;
    std::deque<std::string> errors;
    bool serviceRequest = false;
    // When a service request asked for by SIM:SRQ is due; the steady clock's epoch while none is.
    std::chrono::steady_clock::time_point requestDue {};
};

std::string upper(std::string s)
{
    for (char& c : s)
        c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return s;
}

std::string trim(std::string const& s)
{
    const auto first = s.find_first_not_of(" \t\r");
    if (first == std::string::npos)
        return std::string();
    return s.substr(first, s.find_last_not_of(" \t\r") - first + 1);
}

bool sendAll(int socket, std::string const& data)
{
    std::size_t sent = 0;
    while (sent < data.size()) {
        const ssize_t n = ::send(socket, data.data() + sent, data.size() - sent, MSG_NOSIGNAL);
        if (n <= 0)
            return false;
        sent += static_cast<std::size_t>(n);
    }
    return true;
}

// The answer to one command, or nothing for a command without an answer.
std::string execute(Session& s, std::string const& command)
{
    const std::string line = trim(command);
    const std::size_t space = line.find_first_of(" \t");
    std::string header = upper(line.substr(0, space));
    const std::string argument = space == std::string::npos ? std::string() : upper(trim(line.substr(space)));
    if (!header.empty() && header[0] == ':')
        header.erase(0, 1);

    if (header == "*IDN?")
        return "Zelbrook,ZSIM-100,000001,1.0\n";
    if (header == "*OPC?")
        return "1\n";
    if (header == "*RST") {
        s.readings = 0;
        s.delayMs = 0;
        s.silent = false;
        return std::string();
    }
    if (header == "*CLS") {
        s.errors.clear();
        s.serviceRequest = false;
        return std::string();
    }
    if (header == "*STB?") {
        const int status = (s.errors.empty() ? 0 : 4) | (s.serviceRequest ? 64 : 0);
        s.serviceRequest = false;
        return std::to_string(status) + "\n";
    }
    if (header == "MEAS:VOLT?" || header == "MEAS:VOLT:DC?" || header == "MEASURE:VOLTAGE:DC?") {
        char value[32];
        std::snprintf(value, sizeof value, "%+.6E\n", 1.0 + 0.001 * s.readings++);
        return value;
    }
    if (header == "MEAS:CURR?" || header == "MEAS:CURR:DC?")
        return "+1.000000E-03\n";
    if (header == "SYST:ERR?" || header == "SYSTEM:ERROR?") {
        if (s.errors.empty())
            return "+0,\"No error\"\n";
        std::string error = s.errors.front();
        s.errors.pop_front();
        return error + "\n";
    }
    if (header == "TRAC:DATA?") {
        std::string block = "#216";
        for (char b = 0; b < 16; ++b)
            block += b;
        return block + "\n";
    }
    if (header == "SIM:DELAY") {
        s.delayMs = std::max(0L, std::strtol(argument.c_str(), nullptr, 10));
        return std::string();
    }
    if (header == "SIM:SRQ") {
        const long ms = std::max(0L, std::min(3600000L, std::strtol(argument.c_str(), nullptr, 10)));
        s.requestDue = std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
        return std::string();
    }
    if (header == "SIM:SILENT" && (argument == "ON" || argument == "1" || argument == "OFF" || argument == "0")) {
        s.silent = argument == "ON" || argument == "1";
        return std::string();
    }
    if (s.errors.size() < 32)
        s.errors.push_back("-113,\"Undefined header\"");
    return std::string();
}

// Raises the service request asked for by SIM:SRQ once it is due; returns how many milliseconds to
// wait for the next command before it is (-1: none pending).
int serviceRequestWait(Session& s)
{
    if (s.requestDue == std::chrono::steady_clock::time_point {})
        return -1;
    const auto left
        = std::chrono::duration_cast<std::chrono::milliseconds>(s.requestDue - std::chrono::steady_clock::now());
    if (left.count() > 0)
        return static_cast<int>(left.count());
    s.requestDue = {};
    s.serviceRequest = true;
    ::send(s.socket, "R", 1, MSG_OOB | MSG_NOSIGNAL);
    return -1;
}

void serve(int socket)
{
    Session s;
    s.socket = socket;
    std::string pending;
    char buffer[4096];
    for (;;) {
        pollfd readable {socket, POLLIN, 0};
        const int ready = ::poll(&readable, 1, serviceRequestWait(s));
        if (ready == 0 || (ready < 0 && errno == EINTR))
            continue;
        const ssize_t n = ::recv(socket, buffer, sizeof buffer, 0);
        if (n <= 0)
            break;
        pending.append(buffer, static_cast<std::size_t>(n));
        if (pending.size() > 65536)
            pending.clear(); // no line is that long: drop garbage rather than grow
        std::size_t end;
        while ((end = pending.find('\n')) != std::string::npos) {
            const std::string line = pending.substr(0, end);
            pending.erase(0, end + 1);
            std::size_t start = 0;
            while (start <= line.size()) {
                const std::size_t semicolon = std::min(line.find(';', start), line.size());
                const std::string command = line.substr(start, semicolon - start);
                start = semicolon + 1;
                if (trim(command).empty())
                    continue;
                const std::string answer = execute(s, command);
                if (answer.empty() || s.silent)
                    continue;
                if (s.delayMs > 0)
                    std::this_thread::sleep_for(std::chrono::milliseconds(s.delayMs));
                if (!sendAll(socket, answer))
                    break;
            }
        }
    }
    ::close(socket);
}

} // namespace

int main(int argc, char** argv)
{
    long port = 5025;
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--port") == 0 && i + 1 < argc) {
            port = std::strtol(argv[++i], nullptr, 10);
        } else {
            std::fprintf(stderr,
                         "Usage: zel-instrument [--port N]\n"
                         "Simulated SCPI instrument on 127.0.0.1:N (default 5025; 0 picks a free port).\n"
                         "Prints \"listening on PORT\" once it accepts connections.\n");
            return std::strcmp(argv[i], "--help") == 0 ? 0 : 2;
        }
    }
    if (port < 0 || port > 65535) {
        std::fprintf(stderr, "zel-instrument: invalid port\n");
        return 2;
    }
    signal(SIGPIPE, SIG_IGN);

    const int listener = ::socket(AF_INET, SOCK_STREAM, 0);
    const int yes = 1;
    setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    sockaddr_in address {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    if (listener < 0 || ::bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0
        || ::listen(listener, 16) != 0) {
        std::perror("zel-instrument");
        return 1;
    }
    socklen_t length = sizeof address;
    getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length);
    std::printf("listening on %d\n", ntohs(address.sin_port));
    std::fflush(stdout);

    for (;;) {
        const int client = ::accept(listener, nullptr, nullptr);
        if (client < 0)
            continue;
        setsockopt(client, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
        std::thread(serve, client).detach();
    }
}
