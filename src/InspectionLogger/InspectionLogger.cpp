#include <fa_api/InspectionLogger.h>

#include <algorithm>
#include <mutex>
#include <new>

#include "common/log.h"

namespace
{

constexpr std::size_t kMaxTextLength = 100;

std::mutex instanceMutex;

std::pair<signed char, signed char> KeyOf(unsigned char code1, unsigned char code2)
{
    return {static_cast<signed char>(code1), static_cast<signed char>(code2)};
}

}  // namespace

InspectionLogger* InspectionLogger::m_pInstance = nullptr;
std::map<InspectionLogger::Key, std::string> InspectionLogger::m_DetailedItem;

InspectionLogger::InspectionLogger() = default;

InspectionLogger::~InspectionLogger() = default;

InspectionLogger* InspectionLogger::GetInstance()
{
    // Raw reports on several threads may be the first to ask.
    const std::lock_guard<std::mutex> lock(instanceMutex);
    if (m_pInstance == nullptr) {
        m_pInstance = new (std::nothrow) InspectionLogger;
    }
    return m_pInstance;
}

bool InspectionLogger::AppendInspectionLog(unsigned char code1, unsigned char code2,
                                           const std::string& message)
{
    return m_Store(__func__, KeyOf(code1, code2), message, true);
}

bool InspectionLogger::AssignInspectionLog(unsigned char code1, unsigned char code2,
                                           const std::string& message)
{
    return m_Store(__func__, KeyOf(code1, code2), message, false);
}

bool InspectionLogger::GetInspectionLog(std::string& text, unsigned char code1, unsigned char code2)
{
    const auto entry = m_DetailedItem.find(KeyOf(code1, code2));
    if (entry == m_DetailedItem.end()) {
        return false;
    }
    text = entry->second;
    return true;
}

bool InspectionLogger::ClearOneInspectionLog(unsigned char code1, unsigned char code2)
{
    const auto entry = m_DetailedItem.find(KeyOf(code1, code2));
    if (entry == m_DetailedItem.end()) {
        return false;
    }
    entry->second.clear();
    return true;
}

bool InspectionLogger::ClearAllInspectionLog()
{
    m_DetailedItem.clear();
    return true;
}

bool InspectionLogger::m_Store(const char* operation, Key key, const std::string& message,
                               bool append)
{
    if (message.empty()) {
        FA_LOG_AND_PRINT_FOR(operation, fa::kError, "t_AppendInspectionLog messge empty");  // sic
        return false;
    }
    const auto entry = m_DetailedItem.find(key);
    std::string text = append && entry != m_DetailedItem.end() ? entry->second : std::string();
    text.append(message, 0, kMaxTextLength - text.size());
    std::replace(text.begin(), text.end(), ',', '.');
    // The store changes in this one step, so that it stays as it was where memory runs out.
    const std::string& stored = m_DetailedItem.insert_or_assign(key, std::move(text)).first->second;
    FA_LOG_AND_PRINT_FOR(operation, fa::kInfo, "%s[%zd][%s]", operation,
                         static_cast<ssize_t>(stored.size()), stored.c_str());
    return true;
}
