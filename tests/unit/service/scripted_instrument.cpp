#include "scripted_instrument.h"

namespace orvan_test {

std::string ScriptedInstrument::execute(int& channel, std::span<char> message)
{
    std::string text(message.data(), message.size());
    text.resize(text.find_last_not_of("\r\n") + 1);
    Handler handler;
    {
        std::unique_lock lock(m_mutex);
        m_messages.emplace_back(channel, text);
        ++m_at_work;
        m_opened.wait(lock, [this] { return !m_shut; });
        --m_at_work;
        handler = m_handler;
    }
    if (handler) {
        return handler(channel, text);
    }
    return text.ends_with('?') ? text + ";+OK\r\n" : "+OK\r\n";
}

void ScriptedInstrument::shut()
{
    const std::lock_guard lock(m_mutex);
    m_shut = true;
}

void ScriptedInstrument::open()
{
    const std::lock_guard lock(m_mutex);
    m_shut = false;
    m_opened.notify_all();
}

size_t ScriptedInstrument::at_work() const
{
    const std::lock_guard lock(m_mutex);
    return m_at_work;
}

std::vector<std::pair<int, std::string>> ScriptedInstrument::messages() const
{
    const std::lock_guard lock(m_mutex);
    return m_messages;
}

std::vector<std::string> ScriptedInstrument::texts() const
{
    std::vector<std::string> texts;
    for (const auto& [channel, text] : messages()) {
        texts.push_back(text);
    }
    return texts;
}

void ScriptedInstrument::answer_with(Handler handler)
{
    const std::lock_guard lock(m_mutex);
    m_handler = std::move(handler);
}

} // namespace orvan_test
