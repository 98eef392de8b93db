// Each line of the log goes to standard error.
#pragma once

#include <iostream>
#include <string>

#include "tav/ILogger.h"

class PrintingLogger : public TAV::ILogger
{
public:
    void log(int level, std::string message) override { print(level, message); }
    void log(int level, std::string component, const std::string& message) override
    {
        print(level, component + ": " + message);
    }

private:
    static void print(int level, const std::string& text)
    {
        std::cerr << "[" + std::to_string(level) + "] " + text + "\n"; // in one piece
    }
};
