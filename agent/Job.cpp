// Job
