#include "fault_line.hpp"

#include "plain_request.hpp"

#include <cctype>
#include <nlohmann/json.hpp>
#include <stdexcept>

namespace remote_faults {

namespace {

std::string encoded(std::string const& text) {
    static constexpr char digits[] = "0123456789ABCDEF";
    std::string result;
    for (unsigned char const c : text) {
        if (std::isalnum(c)) {
            result += static_cast<char>(c);
        } else {
            result += {'%', digits[c >> 4], digits[c & 15]};
        }
    }
    return result;
}

nlohmann::json ask(std::string const& url) {
    PlainAnswer const answer = plainRequest("GET", url);
    if (answer.status != 200) {
        throw std::runtime_error("the fault proxy answers " + std::to_string(answer.status));
    }
    return nlohmann::json::parse(answer.body);
}

class ProxyLine final : public FaultLine {
  public:
    explicit ProxyLine(std::string const& endpoint) : control_(endpoint + "/__fault") {}

    void set(Fault const& fault) override {
        ask(control_ + "?kind=" + fault.kind + "&skip=" + std::to_string(fault.skip) +
            "&count=" + std::to_string(fault.count) + "&after=" + std::to_string(fault.after) +
            "&match=" + encoded(fault.match));
    }
    FaultCounts clear() override {
        nlohmann::json const counts = ask(control_);
        return {counts.at("requests").get<unsigned>(), counts.at("applied").get<unsigned>()};
    }

  private:
    std::string const control_;
};

} // namespace

std::string Fault::text() const {
    return kind + " at request " + std::to_string(skip + 1) +
           (count == 0   ? " and all others"
            : count == 1 ? ""
                         : " and the next") +
           (after != 0 ? " after " + std::to_string(after) + " bytes" : "");
}

std::unique_ptr<FaultLine> makeFaultLine(std::string const& endpoint) {
    return std::make_unique<ProxyLine>(endpoint);
}

} // namespace remote_faults
