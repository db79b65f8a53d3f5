#include "BrwUtils/BrwUtils.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdarg>
#include <cstdio>
#include <ctime>

#include "BrwLogger/BrwCheck.h"

namespace Brw {

std::string Utils::format(const char* formatStr, ...) {
    std::string result;
    va_list args;
    va_start(args, formatStr);
    va_list argsCopy;
    va_copy(argsCopy, args);
    int length = vsnprintf(nullptr, 0, formatStr, argsCopy);
    va_end(argsCopy);
    if (length > 0) {
        result.resize(static_cast<size_t>(length) + 1);
        vsnprintf(result.data(), result.size(), formatStr, args);
        result.resize(static_cast<size_t>(length));
    }
    va_end(args);
    return result;
}

bool Utils::isNumeric(const std::string& str) {
    return ! str.empty() &&
           std::all_of(str.begin(), str.end(), [](unsigned char c) { return std::isdigit(c); });
}

std::string Utils::toLower(const std::string& str) {
    std::string lower = str;
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return lower;
}

int64_t Utils::toInt64(const std::string& str) {
    int64_t value = 0;
    const char* first = str.data();
    const char* last = first + str.size();
    while (first != last && std::isspace(static_cast<unsigned char>(*first))) {
        ++first;
    }
    if (first != last && *first == '+') {
        ++first;
    }
    auto [end, error] = std::from_chars(first, last, value);
    if (error == std::errc::invalid_argument) {
        LOG_ERROR("invalid stoll argument");
        value = 0;
    } else if (error == std::errc::result_out_of_range) {
        LOG_ERROR("stoll argument out of range");
        value = 0;
    }
    (void)end;
    return value;
}

std::string Utils::getTimeStamp() {
    char buffer[80] = {0};
    time_t now = time(nullptr);
    struct tm local {};
    if (localtime_r(&now, &local) != nullptr) {
        strftime(buffer, sizeof(buffer), "%d-%m-%Y %H:%M:%S", &local);
    }
    return buffer;
}

} // namespace Brw
