// Where log records go: the URIs of consumers, and the tokenizer that takes them apart.
//
// Input: what to do, then a text. A consumer that comes of it gets a record and is asked for all
// that it can tell.
#include "StringTokenizer.h"
#include "tcFuzzInput.h"
#include "tcLog.h"
#include "tcLogConsumer.h"

#include <iostream>
#include <sstream>

namespace {

void CheckTokens(const std::string& text, const std::string& delimiters)
{
    const std::vector<std::string> tokens = StringTokenizer::BuildTokenList(text, delimiters);
    StringTokenizer words(text, delimiters);
    Require(words.countTokens() == static_cast<int>(tokens.size()), "as many as were counted");
    for (const std::string& token : tokens) {
        Require(words.hasMoreTokens(), "one more");
        const std::string rest = words.remainingString();
        Require(rest.compare(0, token.size(), token) == 0, "the rest begins with the next token");
        Require(words.nextToken() == token, "the next token");
        Require(!token.empty() && token.find_first_of(delimiters) == std::string::npos,
                "a token has a character and no delimiter");
    }
    Require(!words.hasMoreTokens() && words.nextToken().empty(), "no token behind the last");
    Require(words.remainingString().find_first_not_of(delimiters) == std::string::npos,
            "nothing but delimiters behind the last");
}

void MixTokens(tcFuzzInput& input, const std::string& text)
{
    StringTokenizer words(text, " \t");
    for (int i = 0; i < 8; ++i) {
        const unsigned kind = input.U8() % 4;
        if (kind == 0) words.nextIntToken();
        if (kind == 1) words.nextFloatToken();
        if (kind == 2) words.nextToken(":=");
        if (kind == 3) words.nextToken("");
        Require(words.remainingString().size() <= text.size(), "the rest is part of the text");
    }
}

void CutPaths(const std::string& text)
{
    const std::string plain = text.substr(0, text.find('\0'));
    std::vector<char> path(plain.c_str(), plain.c_str() + plain.size() + 1);
    Require(std::strchr(basename(path.data()), '/') == nullptr, "a base name has no slash");
    const char* cut = dirname(path.data());
    Require(std::strlen(cut) <= plain.size(), "a directory is part of the path");
}

void Use(const std::string& uri)
{
    tcLogConsumer* consumer = tcLog::BuildConsumer(uri.c_str());
    Require(consumer != nullptr, "there is always a consumer");
    tcLogEvent event{};
    event.seconds = 1;
    event.type = tcLogEvent::eError;
    std::memcpy(event.message, uri.data(), std::min(uri.size(), sizeof event.message - 1));
    consumer->Output(event);
    std::ostringstream text;
    consumer->Dump(text, nullptr);
    text << consumer->TypeName() << consumer->Description() << consumer->Options();
    if (consumer != tcLog::mpDefaultConsumer && consumer != tcLog::NullConsumer()) delete consumer;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t count)
{
    static std::ostringstream& nowhere = *new std::ostringstream;
    std::streambuf* before = std::cout.rdbuf(nowhere.rdbuf());
    tcFuzzInput input(bytes, count);
    switch (input.U8() % 4) {
    case 0: {
        const std::string delimiters = input.Text(input.U8() % 5);
        CheckTokens(input.Text(4096), delimiters);
        break;
    }
    case 1: {
        const std::string text = input.Text(input.U8());
        MixTokens(input, text);
        break;
    }
    case 2:
        CutPaths(input.Text(4096));
        break;
    default:
        Use(Modest(input.Text(4096)));
    }
    nowhere.str("");
    std::cout.rdbuf(before);
    return 0;
}
