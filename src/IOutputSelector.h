#ifndef KORVEL_IOUTPUTSELECTOR_H
#define KORVEL_IOUTPUTSELECTOR_H

// The selection half of an audio output: which handler takes the data and what kind it is.
class IOutputSelector {
public:
    virtual ~IOutputSelector() = default;
    // Chooses what handles the following data, by output type id; plain outputs ignore it.
    virtual int SetDecoderId(int id) = 0;
    // Resets the input state after an error: a new run of packets follows.
    virtual int RestartFeed() = 0;
    virtual int GetType() = 0;
};

#endif
