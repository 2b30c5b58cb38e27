// iSegmentSource: a segment that writes itself into the memory of a queue, so that it is copied once.
//
// Threads  the queue calls both operations on the thread that queues.
#ifndef KESTOVA_STORAGE_BUFFERS_SEGMENTSOURCE_H
#define KESTOVA_STORAGE_BUFFERS_SEGMENTSOURCE_H

class iSegmentSource
{
public:
    virtual ~iSegmentSource() = default;
    // Writes the whole segment; a long one before the queue is locked, so that no other thread waits for its copy.
    virtual void write(char* place) = 0;
    // Called once, under the queue's lock and in the order of the queue; null if the queue drops the segment.
    virtual void queued(char* place) = 0;
};

#endif
