/// @file
/// The program's own log: one line an event on standard error, as text or as JSON. Any thread.
#pragma once

#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>

namespace logging {

enum class Format
{
    text,
    json
};

/// To be called before threads start.
void use(Format format);

using Field = std::pair<std::string_view, std::string>;

/// Writes a line: the time (UTC), the level ("info", "warning", "error"), a sentence, and named values. Control bytes
/// are escaped in both formats: what is logged may come from strangers.
void say(std::string_view level, std::string_view sentence, std::initializer_list<Field> fields = {});

/// The same at most once a minute for each sentence: what strangers cause must not fill a disk. Says how often it was
/// left out.
void say_seldom(std::string_view level, const std::string& sentence, std::initializer_list<Field> fields = {});

} // namespace logging
