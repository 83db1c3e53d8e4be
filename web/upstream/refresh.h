// Questions to the daemon on behalf of many clients.
//
// Whoever asks for the same before it is asked of the daemon gets the same answer, and every answer is asked
// for after its request came, so nobody is told what was true before. A question is asked twice a second at
// most, and a fixed number of them at a time, one for each lane: what a client chooses by parameters, of
// which there are many, does not hold up what everybody asks for. A lane takes a bounded number of questions.
//
// Thread-safety
// -------------
// Any task may ask. What makes an answer runs in the task of its lane, with a session of that lane's own.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "lib/link/session.h"
#include "web/http/message.h"

// May end the command; what ended it becomes the answer.
using MakeAnswer = std::function<Answer(Session&)>;
using DeliverAnswer = std::function<void(const std::vector<uint64_t>&, const Answer&)>;

struct Question {
    std::string key;  // the same for whoever asks the same
    MakeAnswer make;
    std::vector<uint64_t> waiting{};
};

struct Lane {
    std::mutex lock{};
    std::condition_variable asked{};
    std::list<Question> questions{};         // the longest waiting first
    std::map<std::string, int64_t> begun{};  // when those of the last moments were asked
    bool stopped = false;
    std::thread thread{};
};

void startLane(Lane& lane, const DeliverAnswer& deliver);
void stopLane(Lane& lane);
// False when the lane has no room.
bool askLane(Lane& lane, const std::string& key, const MakeAnswer& make, uint64_t connection);

// How a failure is answered.
Answer failureAnswer(const CommandEnds& end);
