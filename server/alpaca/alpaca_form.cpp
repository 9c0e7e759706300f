#include "alpaca/alpaca_form.h"

#include <algorithm>
#include <charconv>
#include <cmath>

namespace vxcam {

namespace {

std::string lowered(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(), [](char letter) {
        return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
    });
    return text;
}

[[noreturn]] void refuse(const std::string& text)
{
    throw Refusal(400, "usage", text);
}

template <class Number>
Number numberOf(const std::string& name, const std::string& text, const char* what)
{
    Number number{};
    const char* const last = text.data() + text.size();
    const auto [end, error] = std::from_chars(text.data(), last, number);
    if (text.empty() || error != std::errc() || end != last)
        refuse(name + ": " + what + " is needed");
    return number;
}

} // namespace

AlpacaForm::AlpacaForm(const HttpRequest& request) : isPut_(request.method == "PUT")
{
    const std::string* const type = request.header("Content-Type");
    if (isPut_ && !request.body.empty() && type != nullptr &&
        lowered(*type).rfind("application/x-www-form-urlencoded", 0) != 0) {
        refuse("the body must be application/x-www-form-urlencoded");
    }
    for (auto& [name, value] : parsedForm(isPut_ ? request.body : request.query)) {
        values_.emplace(isPut_ ? name : lowered(name), value);
    }
    client_ = request.remote;
    name_ = "Alpaca client " + std::to_string(optionalId("ClientID")) + " at " + client_;
    clientTransaction_ = optionalId("ClientTransactionID");
}

const std::string* AlpacaForm::find(const std::string& name) const
{
    const auto [begin, end] = values_.equal_range(isPut_ ? name : lowered(name));
    if (begin == end) return nullptr;
    if (std::next(begin) != end) refuse(name + " is there twice");
    return &begin->second;
}

uint32_t AlpacaForm::optionalId(const std::string& name) const
{
    const std::string* const value = find(name);
    if (value == nullptr) return 0;
    return numberOf<uint32_t>(name, *value, "a number from 0 to 4294967295");
}

const std::string& AlpacaForm::text(const std::string& name) const
{
    const std::string* const value = find(name);
    if (value == nullptr) refuse("the parameter " + name + " is missing; capitals matter");
    return *value;
}

bool AlpacaForm::boolean(const std::string& name) const
{
    const std::string word = lowered(text(name));
    if (word == "true") return true;
    if (word != "false") refuse(name + ": true or false is needed");
    return false;
}

int32_t AlpacaForm::integer(const std::string& name) const
{
    return numberOf<int32_t>(name, text(name), "a whole number");
}

double AlpacaForm::number(const std::string& name) const
{
    const auto number = numberOf<double>(name, text(name), "a number with a decimal point");
    if (!std::isfinite(number)) refuse(name + ": a finite number is needed");
    return number;
}

} // namespace vxcam
