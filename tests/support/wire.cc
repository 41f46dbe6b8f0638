#include "support/wire.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>

#include "support/wait_for.h"

namespace faxtray {

std::string word(uint32_t value)
{
    std::string bytes;
    for (int shift = 24; shift >= 0; shift -= 8)
        bytes += static_cast<char>(value >> shift);
    return bytes;
}

std::string text(const std::string &value)
{
    return word(static_cast<uint32_t>(value.size())) + value + std::string((4 - value.size() % 4) % 4, '\0');
}

std::string bare_identity(const std::string &user, const std::string &password, uint32_t check_value)
{
    return text(user) + text(password) + text("") + word(0) + word(check_value);
}

std::string identity(const std::string &user, const std::string &password, uint32_t check_value)
{
    return word(1) + bare_identity(user, password, check_value);
}

// --- replies

static uint32_t word_at(const std::string &bytes, size_t offset)
{
    uint32_t value = 0;
    for (size_t i = offset; i < offset + 4; i++)
        value = value << 8 | (i < bytes.size() ? static_cast<unsigned char>(bytes[i]) : 0u);
    return value;
}

static uint32_t take_word(const std::string &bytes, size_t *offset)
{
    *offset += 4;
    return word_at(bytes, *offset - 4);
}

static std::string take_text(const std::string &bytes, size_t *offset)
{
    size_t n = take_word(bytes, offset);
    std::string value = *offset < bytes.size() ? bytes.substr(*offset, n) : "";
    *offset += (n + 3) / 4 * 4;
    return value;
}

uint32_t reply_t::at(size_t nth_word) const
{
    return word_at(result, 4 * nth_word);
}

std::string reply_t::message() const
{
    size_t offset = 12;
    return res_type() == 18 ? take_text(result, &offset) : "";
}

std::string reply_t::chunk() const
{
    size_t offset = 4;
    return take_text(result, &offset);
}

std::vector<uint32_t> reply_t::fax_ids() const
{
    std::vector<uint32_t> ids;
    size_t offset = 12;  // after the type, the list's boolean and its check value
    while (code() == 0 && take_word(result, &offset) == 1) {
        for (int text = 0; text < 4; text++)
            take_text(result, &offset);
        ids.push_back(word_at(result, offset + 8));  // after two numbers
        offset += 20;
    }
    return ids;
}

// --- calls

static std::string rpc_call(uint32_t program, uint32_t version, uint32_t procedure,
                            const std::string &arguments)
{
    const std::string body = word(1) + word(0) + word(2) +  // xid, CALL, RPC version
                             word(program) + word(version) + word(procedure) + std::string(16, '\0') +
                             arguments;  // after empty credentials
    return word(0x80000000u | static_cast<uint32_t>(body.size())) + body;
}

std::string call_bytes(uint32_t procedure, const std::string &arguments)
{
    return rpc_call(351229, 1, procedure, arguments);
}

unique_fd connect_to(uint16_t port)
{
    unique_fd sock(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    struct timeval patience = {PATIENCE, 0};
    setsockopt(sock.get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    struct sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (connect(sock.get(), reinterpret_cast<struct sockaddr *>(&address), sizeof address) != 0)
        sock.reset();
    return sock;
}

static bool send_all(int fd, const std::string &bytes)
{
    return ::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size());
}

static bool receive_all(int fd, size_t n, std::string *bytes)
{
    bytes->resize(n);
    return n == 0 || recv(fd, bytes->data(), n, MSG_WAITALL) == static_cast<ssize_t>(n);
}

static reply_t receive_reply(int fd)
{
    reply_t reply;
    std::string body, fragment, mark;
    do {
        if (!receive_all(fd, 4, &mark) || !receive_all(fd, word_at(mark, 0) & 0x7FFFFFFF, &fragment))
            return reply;
        body += fragment;
    } while (!(word_at(mark, 0) & 0x80000000u));
    reply.accept_stat = static_cast<int>(word_at(body, 20));  // xid, REPLY, ACCEPTED, verifier (2), status
    reply.result = body.substr(24);
    return reply;
}

// What the port mapper (program 100000, version 2, GETPORT) says of program 351229 over TCP.
static uint16_t daemon_port()
{
    const unique_fd sock = connect_to(111);
    const std::string sought = word(351229) + word(1) + word(IPPROTO_TCP) + word(0);
    if (!sock || !send_all(sock.get(), rpc_call(100000, 2, 3, sought)))
        return 0;
    return static_cast<uint16_t>(receive_reply(sock.get()).at(0));
}

connection::connection()
{
    if (uint16_t port = daemon_port())
        socket_ = connect_to(port);
}

bool connection::send(const std::string &bytes) const
{
    return send_all(fd(), bytes);
}

reply_t connection::receive() const
{
    return receive_reply(fd());
}

reply_t connection::call(uint32_t procedure, const std::string &arguments) const
{
    return send(call_bytes(procedure, arguments)) ? receive() : reply_t();
}

reply_t call(uint32_t procedure, const std::string &arguments)
{
    return connection().call(procedure, arguments);
}

}  // namespace faxtray
