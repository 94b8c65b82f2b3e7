#include "iscsi_login.h"

#include "messages.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <map>
#include <nettle/base64.h>
#include <nettle/md5.h>
#include <optional>
#include <set>

namespace hostsim::iscsi
{
namespace
{

constexpr uint8_t security = 0, operational = 1, full_feature = 3; // stages

// ---- Operational keys ---------------------------------------------------------------------------

// How the answer to an offer may be: one of two digests, the target's own limit, the lesser or the
// greater of two numbers, or a yes if one of the sides, or if both, say yes.
enum class rule : uint8_t { digest, declared, lesser, greater, either, both };

struct key {
    std::string_view name;
    std::string_view offer; // empty: only the target says it
    rule how;
    uint32_t parameters::*value;
    uint32_t min = 0;
    uint32_t max = 1;
};

constexpr uint32_t most_length = 0xFFFFFF, least_length = 512;

// A discovery session has only the first three.
constexpr size_t discovery_keys = 3;
constexpr key keys[] = {
    {"HeaderDigest", "None,CRC32C", rule::digest, &parameters::header_digest},
    {"DataDigest", "None,CRC32C", rule::digest, &parameters::data_digest},
    {"MaxRecvDataSegmentLength", "262144", rule::declared, &parameters::most_sent_data,
     least_length, most_length},
    {"MaxConnections", "1", rule::lesser, &parameters::max_connections, 1, 65535},
    {"InitialR2T", "Yes", rule::either, &parameters::initial_r2t},
    {"ImmediateData", "Yes", rule::both, &parameters::immediate_data},
    {"MaxBurstLength", "262144", rule::lesser, &parameters::max_burst_length, least_length,
     most_length},
    {"FirstBurstLength", "65536", rule::lesser, &parameters::first_burst_length, least_length,
     most_length},
    {"DefaultTime2Wait", "2", rule::greater, &parameters::time2wait, 0, 3600},
    {"DefaultTime2Retain", "0", rule::lesser, &parameters::time2retain, 0, 3600},
    {"MaxOutstandingR2T", "1", rule::lesser, &parameters::max_outstanding_r2t, 1, 65535},
    {"DataPDUInOrder", "Yes", rule::either, &parameters::data_pdu_in_order},
    {"DataSequenceInOrder", "Yes", rule::either, &parameters::data_sequence_in_order},
    {"ErrorRecoveryLevel", "0", rule::lesser, &parameters::error_recovery_level, 0, 2},
    {"TargetPortalGroupTag", "", rule::declared, &parameters::portal_group, 0, 65535},
};
static_assert(most_data == 262144);

// Keys that need no answer here.
constexpr std::string_view told_keys[] = {"TargetAlias", "TargetAddress", "AuthMethod",
                                          "CHAP_A",      "CHAP_I",        "CHAP_C"};

std::optional<uint32_t> number_of(std::string_view text)
{
    const bool hex = text.starts_with("0x") || text.starts_with("0X");
    text.remove_prefix(hex ? 2 : 0);
    uint32_t n = 0;
    const char *const end = text.data() + text.size();
    const auto [last, error] = std::from_chars(text.data(), end, n, hex ? 16 : 10);
    return error == std::errc() && last == end ? std::optional(n) : std::nullopt;
}

// The number that an answer stands for, or nothing if it is not one of the answers allowed.
std::optional<uint32_t> answer_value(const key &k, std::string_view answer)
{
    switch (k.how) {
    case rule::digest:
        return answer == "None"     ? std::optional(0U)
               : answer == "CRC32C" ? std::optional(1U)
                                    : std::nullopt;
    case rule::either: // this side says yes
        return answer == "Yes" ? std::optional(1U) : std::nullopt;
    case rule::both:
        return answer == "Yes"  ? std::optional(1U)
               : answer == "No" ? std::optional(0U)
                                : std::nullopt;
    default:
        break;
    }
    const std::optional<uint32_t> n = number_of(answer);
    const uint32_t offered = number_of(k.offer).value_or(0);
    if (!n || *n < k.min || *n > k.max || (k.how == rule::lesser && *n > offered) ||
        (k.how == rule::greater && *n < offered))
        return std::nullopt;
    return n;
}

bool is_refusal(std::string_view answer)
{
    return answer == "Reject" || answer == "Irrelevant" || answer == "NotUnderstood";
}

// ---- CHAP -----------------------------------------------------------------------------------------

constexpr size_t most_challenge = 1024;

std::vector<uint8_t> binary_of(std::string_view text)
{
    std::vector<uint8_t> bytes;
    if (text.starts_with("0b") || text.starts_with("0B")) {
        text.remove_prefix(2);
        base64_decode_ctx context;
        base64_decode_init(&context);
        bytes.resize(BASE64_DECODE_LENGTH(text.size()));
        size_t length = bytes.size();
        const bool whole =
            base64_decode_update(&context, &length, bytes.data(), text.size(), text.data()) != 0 &&
            base64_decode_final(&context) != 0;
        bytes.resize(whole ? length : 0);
    } else if (text.starts_with("0x") || text.starts_with("0X")) {
        text.remove_prefix(2);
        for (size_t i = 0; i < text.size(); i += 2) {
            const auto byte = number_of("0x" + std::string(text.substr(i, 2)));
            if (!byte || text.size() % 2 != 0)
                return {};
            bytes.push_back(static_cast<uint8_t>(*byte));
        }
    }
    return bytes;
}

std::string chap_response(uint8_t identifier, std::string_view secret,
                          std::span<const uint8_t> challenge)
{
    std::array<uint8_t, MD5_DIGEST_SIZE> digest{};
    md5_ctx context;
    md5_init(&context);
    md5_update(&context, 1, &identifier);
    md5_update(&context, secret.size(), reinterpret_cast<const uint8_t *>(secret.data()));
    md5_update(&context, challenge.size(), challenge.data());
    md5_digest(&context, digest.size(), digest.data());
    std::string text = "0x";
    for (const uint8_t byte : digest) {
        constexpr char digits[] = "0123456789abcdef";
        text += {digits[byte >> 4], digits[byte & 0xF]};
    }
    return text;
}

// ---- The exchange -----------------------------------------------------------------------------

// The protocol's own words.
struct refusal {
    uint16_t status;
    const char *cause;
};
constexpr refusal refusals[] = {
    {0x0101, "Target moved temporarily"},
    {0x0102, "Target moved permanently"},
    {0x0200, "Initiator error"},
    {0x0201, "Authentication failure"},
    {0x0202, "Authorization failure"},
    {0x0203, "Not found"},
    {0x0204, "Target removed"},
    {0x0205, "Unsupported version"},
    {0x0206, "Too many connections"},
    {0x0207, "Missing parameter"},
    {0x0208, "Can't include in session"},
    {0x0209, "Session type not supported"},
    {0x020A, "Session does not exist"},
    {0x020B, "Invalid during login"},
    {0x0300, "Target error"},
    {0x0301, "Service unavailable"},
    {0x0302, "Out of resources"},
};

[[noreturn]] void fail_login(uint16_t status)
{
    constexpr int redirection = 1;
    constexpr uint16_t not_authenticated = 0x0201;
    const auto *const known = std::ranges::find(refusals, status, &refusal::status);
    char text[100];
    snprintf(text, sizeof text, "the login is refused: %s (%04xh)",
             known == std::end(refusals) ? "unknown cause" : known->cause, unsigned{status});
    std::string cause = text;
    if (status >> 8 == redirection)
        cause += ", which is not followed";
    if (status == not_authenticated && std::getenv("VARNOK_CHAP_SECRET") == nullptr)
        cause += "; VARNOK_CHAP_USER and VARNOK_CHAP_SECRET are not set";
    throw failure(EACCES, cause);
}

using keys_and_values = std::map<std::string, std::string, std::less<>>;

class login
{
  public:
    login(connection &to, const login_names &names, deadline until)
        : to_(to), names_(names), until_(until)
    {
    }

    login_result run()
    {
        const char *user = std::getenv("VARNOK_CHAP_USER");
        const char *secret = std::getenv("VARNOK_CHAP_SECRET");
        const bool has_secret = user != nullptr && secret != nullptr;

        say("InitiatorName", names_.initiator);
        say("SessionType", names_.target.empty() ? "Discovery" : "Normal");
        if (!names_.target.empty())
            say("TargetName", names_.target);
        say("AuthMethod", has_secret ? "CHAP,None" : "None");
        bool done = exchange(security, operational);
        const std::string method = answer("AuthMethod").value_or("None");
        if (has_secret && method == "CHAP")
            authenticate(user, secret);
        else if (method != "None")
            fail_protocol("an authentication method that was not offered");
        else
            while (!done)
                done = exchange(security, operational);

        for (const key &k :
             std::span(keys).first(names_.target.empty() ? discovery_keys : std::size(keys)))
            if (!k.offer.empty())
                say(k.name, k.offer);
        while (!exchange(operational, full_feature)) {
        }
        if (result_.tsih == 0)
            fail_protocol("a session without a handle");
        result_.agreed.first_burst_length =
            std::min(result_.agreed.first_burst_length, result_.agreed.max_burst_length);
        return result_;
    }

  private:
    void say(std::string_view name, std::string_view value)
    {
        text_.append(name).append("=").append(value).push_back('\0');
    }

    std::optional<std::string> answer(std::string_view name) const
    {
        const auto found = answers_.find(name);
        return found == answers_.end() ? std::nullopt : std::optional(found->second);
    }

    void authenticate(const char *user, const char *secret)
    {
        say("CHAP_A", "5"); // MD5
        exchange(security, security);
        const std::optional<uint32_t> identifier = number_of(answer("CHAP_I").value_or(""));
        const std::vector<uint8_t> challenge = binary_of(answer("CHAP_C").value_or(""));
        if (answer("CHAP_A") != "5" || !identifier || *identifier > 0xFF || challenge.empty() ||
            challenge.size() > most_challenge)
            fail_protocol("a wrong CHAP challenge");
        say("CHAP_N", user);
        say("CHAP_R", chap_response(static_cast<uint8_t>(*identifier), secret, challenge));
        while (!exchange(security, operational)) {
        }
    }

    // Takes what the target agrees to, and answers what is not understood.
    void take_answers()
    {
        for (const auto &[name, value] : answers_) {
            const auto *const k = std::ranges::find(keys, name, &key::name);
            const bool known =
                k != std::end(keys) || std::ranges::find(told_keys, name) != std::end(told_keys);
            if (!known && !is_refusal(value))
                say(name, "NotUnderstood");
            if (k == std::end(keys) || is_refusal(value))
                continue;
            const std::optional<uint32_t> n = answer_value(*k, value);
            if (!n)
                fail_protocol(name + "=" + shown(value, 40));
            result_.agreed.*(k->value) = *n;
        }
    }

    // Sends the text, and reads the answers to it. Returns whether the target goes on to the next
    // stage.
    bool exchange(uint8_t stage, uint8_t next)
    {
        constexpr size_t most_text = 65536;
        answers_.clear();
        std::string received;
        pdu reply;
        send(stage, next);
        while (reply = receive(stage), (reply.flags() & continue_bit) != 0) {
            received.append(reply.data.begin(), reply.data.end());
            if (received.size() > most_text)
                fail_protocol("an endless text");
            send(stage, stage);
        }
        received.append(reply.data.begin(), reply.data.end());
        each_key(received, [&](std::string_view name, std::string_view value) {
            if (!answers_.emplace(name, value).second || !seen_.emplace(stage, name).second)
                fail_protocol("a key that is given twice");
        });
        take_answers();
        const bool transit = (reply.flags() & final_bit) != 0;
        if (transit && ((reply.flags() & 3) != next || stage == next))
            fail_protocol("a wrong stage of the login");
        return transit;
    }

    void send(uint8_t stage, uint8_t next)
    {
        constexpr unsigned stage_shift = 2;
        constexpr int most_requests = 20;
        if (++requests_ > most_requests)
            fail_protocol("an endless login");
        pdu request;
        request.header[0] = login_request | immediate;
        request.header[at::flags] = static_cast<uint8_t>(stage << stage_shift);
        if (stage != next)
            request.header[at::flags] |= static_cast<uint8_t>(final_bit | next);
        std::ranges::copy(names_.isid, request.header.begin() + at::isid);
        request.put(at::command_number, first_command_number);
        request.put(at::expected_status_number, result_.expected_status_number);
        request.data.assign(text_.begin(), text_.end());
        text_.clear();
        to_.send(std::move(request), until_);
    }

    pdu receive(uint8_t stage)
    {
        constexpr unsigned stage_shift = 2;
        pdu reply = to_.receive(until_);
        if (reply.operation() != login_response)
            fail_protocol("not an answer to a login");
        if (const auto status = reply.get<uint16_t>(at::login_status))
            fail_login(status);
        if (reply.header[at::version] != 0 || reply.get<uint32_t>(at::task_tag) != 0 ||
            (reply.flags() >> stage_shift & 3) != stage ||
            !std::ranges::equal(names_.isid, std::span(reply.header).subspan(at::isid, 6)))
            fail_protocol("not an answer to this login");
        result_.tsih = reply.get<uint16_t>(at::tsih);
        result_.expected_status_number = reply.get<uint32_t>(at::status_number) + 1;
        result_.most_command_number = reply.get<uint32_t>(at::most_command_number);
        return reply;
    }

    static constexpr uint32_t first_command_number = 1;

    connection &to_;
    const login_names &names_;
    const deadline until_;
    login_result result_ = {{}, 0, first_command_number, 0, 0};
    std::string text_; // to send
    int requests_ = 0;
    keys_and_values answers_;
    std::set<std::pair<uint8_t, std::string>> seen_; // keys of a stage
};

} // namespace

login_result log_in(connection &to, const login_names &names, deadline until)
{
    return login(to, names, until).run();
}

} // namespace hostsim::iscsi
